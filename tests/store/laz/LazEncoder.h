#pragma once

#include <cstdint>
#include <vector>

/// \file
/// The other side of the arithmetic coder, written for clarity and without any of the decoder's code, so that
/// tests can make streams of their own.

/// An adaptive model of `n` symbols.
struct EncodedModel
{
    explicit EncodedModel(uint32_t n);
    void count(uint32_t symbol);
    /// Lower end of a symbol's interval, in units of 2^-15.
    uint32_t low(uint32_t symbol) const;
    uint32_t size() const { return static_cast<uint32_t>(_counts.size()); }

private:
    void update();

    std::vector<uint32_t> _counts;
    std::vector<uint32_t> _lows;
    uint32_t _total = 0;
    uint32_t _cycle;
    uint32_t _countdown = 0;
};

/// An adaptive model of a bit.
struct EncodedBitModel
{
    uint32_t zeros = 1, total = 2, zeroProbability = 4096, cycle = 4, countdown = 4;
};

class LazEncoder
{
public:
    void bit(EncodedBitModel& model, unsigned value);
    void symbol(EncodedModel& model, uint32_t value);
    void bits(unsigned n, uint32_t value);
    /// The whole stream; nothing may follow.
    std::vector<uint8_t> finish();

private:
    void shortBits(unsigned n, uint32_t value);
    void narrow(uint32_t low, uint32_t width);

    uint32_t _base = 0;
    uint32_t _length = 0xFFFFFFFFu;
    std::vector<uint8_t> _bytes;
};

/// Encodes integers as corrections of predictions.
class IntegerEncoder
{
public:
    IntegerEncoder(unsigned bits, unsigned contexts);
    void encode(LazEncoder& encoder, uint32_t prediction, uint32_t value, unsigned context);

private:
    unsigned _bits;
    std::vector<EncodedModel> _widths;
    EncodedBitModel _sign;
    std::vector<EncodedModel> _corrections; ///< by width, the first unused
};

#pragma once

#include "store/las/laz/ArithmeticModels.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace VelBrx::Laz {

/// Adaptive binary arithmetic decoder over bytes in memory. Reading behind the last byte gives zeros and
/// makes `overrun()` true for good: whoever decodes a bounded number of values may check once at the end.
/// `corrupt()` reports a value that no encoder writes.
///
/// It and `ArithmeticEncoder` have the same operations, so that what is coded, by which model and in which
/// order is written down once: the decoder ignores the value that each is given, and both return the value.
class ArithmeticDecoder
{
public:
    static constexpr bool kEncodes = false;

    /// Starts at `begin`; the bytes up to `end` must stay until the last value is decoded.
    void start(const uint8_t* begin, const uint8_t* end)
    {
        _next = begin;
        _end = end;
        _overrun = _corrupt = false;
        _length = 0xFFFFFFFFu;
        _value = 0;
        take(32);
        if (_value >= _length) { // the value is less ever after, else an interval could not be found
            _corrupt = true;
            _value = 0;
        }
    }

    unsigned bit(BitModel& model, unsigned = 0)
    {
        const uint32_t split = model._zeroProbability * (_length >> BitModel::kScaleBits);
        const unsigned result = _value >= split;
        if (result) {
            _value -= split;
            _length -= split;
        } else
            _length = split;
        renormalise();
        model.count(result);
        return result;
    }

    /// The next symbol. Tries the one that has been the most frequent first: where that is right, it costs no
    /// division and no search, and the processor need not wait for either.
    template <unsigned kCapacity>
    unsigned symbol(SymbolModel<kCapacity>& model, unsigned = 0)
    {
        const uint32_t unit = _length >> SymbolModel<kCapacity>::kScaleBits;
        const unsigned likely = model._likely;
        const auto [low, width] = model.interval(likely, unit, _length);
        if (_value - low < width) return narrow(model, likely, low, width);
        return search(model, unit);
    }

    /// The same for symbols that are about equally likely.
    template <unsigned kCapacity>
    [[gnu::always_inline]] unsigned evenSymbol(SymbolModel<kCapacity>& model, unsigned = 0)
    {
        return search(model, _length >> SymbolModel<kCapacity>::kScaleBits);
    }

    /// `n` equally likely bits, 1 <= n <= 32.
    uint32_t bits(unsigned n, uint32_t = 0)
    {
        if (n <= 19) return shortBits(n);
        const uint32_t lower = shortBits(16);
        return shortBits(n - 16) << 16 | lower;
    }

    uint64_t bits64(uint64_t = 0)
    {
        const uint64_t lower = bits(32);
        return static_cast<uint64_t>(bits(32)) << 32 | lower;
    }

    bool overrun() const { return _overrun; }
    bool corrupt() const { return _corrupt; }
    bool atEnd() const { return _next == _end; }
    /// The first byte that has not been read. At the end of a sound stream it is the stream's end.
    const uint8_t* position() const { return _next; }

private:
    template <unsigned kCapacity>
    [[gnu::always_inline]] unsigned search(SymbolModel<kCapacity>& model, uint32_t unit)
    {
        const unsigned symbol = model.find(static_cast<uint16_t>(_value / unit));
        const auto [low, width] = model.interval(symbol, unit, _length);
        return narrow(model, symbol, low, width);
    }

    template <unsigned kCapacity>
    [[gnu::always_inline]] unsigned narrow(SymbolModel<kCapacity>& model, unsigned symbol, uint32_t low,
                                           uint32_t width)
    {
        _value -= low;
        _length = width;
        renormalise();
        model.count(symbol);
        return symbol;
    }

    uint32_t shortBits(unsigned n)
    {
        _length >>= n;
        const uint32_t result = _value / _length;
        _value -= result * _length;
        if (result >> n != 0) _corrupt = true;
        renormalise();
        return result & ((1u << n) - 1);
    }

    static uint32_t loadBigEndian(const uint8_t* bytes)
    {
        return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
               static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
    }

    /// Moves the next `bits`, at most 32 in whole bytes, into the value. Behind the end are zeros.
    void take(unsigned bits)
    {
        size_t count = bits / 8;
        const auto left = static_cast<size_t>(_end - _next);
        uint32_t nextFour;
        if (left >= 4)
            nextFour = loadBigEndian(_next);
        else {
            nextFour = loadAtEnd(_next, left);
            if (count > left) {
                count = left;
                _overrun = true;
            }
        }
        _value = static_cast<uint32_t>(((uint64_t{_value} << 32 | nextFour) << bits) >> 32);
        _next += count;
    }

    [[gnu::noinline, gnu::cold]] static uint32_t loadAtEnd(const uint8_t* next, size_t left)
    {
        uint8_t bytes[4] = {0, 0, 0, 0};
        std::copy_n(next, left, bytes);
        return loadBigEndian(bytes);
    }

    /// Takes whole bytes until the length has its highest byte again. The length is at least 32 before, since
    /// every interval of a model is at least 2^-15 of a length of at least 2^24, and of `bits` 2^-19.
    void renormalise()
    {
        const unsigned bits = static_cast<unsigned>(__builtin_clz(_length)) & 24u;
        _length <<= bits;
        take(bits);
    }

    uint32_t _value = 0;
    uint32_t _length = 0xFFFFFFFFu;
    const uint8_t* _next = nullptr;
    const uint8_t* _end = nullptr;
    bool _overrun = false;
    bool _corrupt = false;
};

} // namespace VelBrx::Laz

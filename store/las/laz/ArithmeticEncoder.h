#pragma once

#include "store/las/laz/ArithmeticModels.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VelBrx::Laz {

/// Adaptive binary arithmetic encoder into memory, the other side of `ArithmeticDecoder`. Every operation
/// returns the value that it encodes. The object keeps its memory from stream to stream.
class ArithmeticEncoder
{
public:
    static constexpr bool kEncodes = true;

    /// Begins a stream.
    void start()
    {
        _size = 0;
        _base = 0;
        _length = 0xFFFFFFFFu;
    }

    unsigned bit(BitModel& model, unsigned value)
    {
        const uint32_t split = model._zeroProbability * (_length >> BitModel::kScaleBits);
        if (value) {
            add(split);
            _length -= split;
        } else
            _length = split;
        renormalise();
        model.count(value);
        return value;
    }

    template <unsigned kCapacity>
    unsigned symbol(SymbolModel<kCapacity>& model, unsigned value)
    {
        const uint32_t unit = _length >> SymbolModel<kCapacity>::kScaleBits;
        const auto [low, width] = model.interval(value, unit, _length);
        add(low);
        _length = width;
        renormalise();
        model.count(value);
        return value;
    }

    template <unsigned kCapacity>
    unsigned evenSymbol(SymbolModel<kCapacity>& model, unsigned value)
    {
        return symbol(model, value);
    }

    /// The `n` low bits of `value`, 1 <= n <= 32; the others must be 0.
    uint32_t bits(unsigned n, uint32_t value)
    {
        if (n <= 19) {
            shortBits(n, value);
        } else {
            shortBits(16, value & 0xFFFF);
            shortBits(n - 16, value >> 16);
        }
        return value;
    }

    uint64_t bits64(uint64_t value)
    {
        bits(32, static_cast<uint32_t>(value));
        bits(32, static_cast<uint32_t>(value >> 32));
        return value;
    }

    /// Ends the stream: its bytes are whole then, and nothing may follow until the next `start`. A decoder
    /// that read all values has read exactly these bytes.
    void finish()
    {
        const bool isLong = _length > 1u << 25;
        add(isLong ? 1u << 24 : 1u << 23);
        _length = isLong ? 1u << 23 : 1u << 15;
        renormalise();
        reserve();
        for (unsigned k = isLong ? 3 : 2; k > 0; --k)
            _bytes[_size++] = 0;
    }

    const uint8_t* data() const { return _bytes.data(); }
    size_t size() const { return _size; }

private:
    void shortBits(unsigned n, uint32_t value)
    {
        _length >>= n;
        add(value * _length);
        renormalise();
    }

    void add(uint32_t x)
    {
        _base += x;
        if (_base < x) carry();
    }

    /// Into the bytes put out. It ends at the first of them at the latest: the whole is less than one.
    void carry()
    {
        size_t at = _size - 1;
        while (_bytes[at] == 0xFF)
            _bytes[at--] = 0;
        ++_bytes[at];
    }

    /// Puts out whole bytes until the length has its highest byte again.
    void renormalise()
    {
        const unsigned bits = static_cast<unsigned>(__builtin_clz(_length)) & 24u;
        if (bits == 0) return;
        reserve();
        for (unsigned k = 0; k < 4; ++k) // of which those that count are kept
            _bytes[_size + k] = static_cast<uint8_t>(_base >> (24 - 8 * k));
        _size += bits / 8;
        _base <<= bits;
        _length <<= bits;
    }

    /// Makes room for four bytes.
    void reserve()
    {
        if (_size + 4 > _bytes.size()) _bytes.resize(2 * _bytes.size() + 4096);
    }

    uint32_t _base = 0;
    uint32_t _length = 0xFFFFFFFFu;
    size_t _size = 0;
    std::vector<uint8_t> _bytes; ///< the first `_size` count
};

} // namespace VelBrx::Laz

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace VelBrx::Laz {

/// Adaptive probability of one binary decision. A default-constructed model is in its initial state.
class BitModel
{
private:
    friend class ArithmeticDecoder;

    static constexpr uint32_t kScaleBits = 13;
    static constexpr uint32_t kMaxTotal = 1u << kScaleBits;
    static constexpr uint32_t kMaxCycle = 64;

    void update()
    {
        _total += _cycle;
        if (_total > kMaxTotal) {
            _total = (_total + 1) >> 1;
            _zeros = (_zeros + 1) >> 1;
            if (_zeros == _total) ++_total;
        }
        _zeroProbability = (_zeros * ((1u << 31) / _total)) >> 18;
        const uint32_t longer = (5 * _cycle) >> 2;
        _cycle = longer < kMaxCycle ? longer : kMaxCycle;
        _countdown = _cycle;
    }

    uint32_t _zeros = 1;
    uint32_t _total = 2;
    uint32_t _zeroProbability = 1u << (kScaleBits - 1);
    uint32_t _cycle = 4;
    uint32_t _countdown = 4;
};

/// Adaptive probabilities of the symbols 0 to N-1, N at most `kCapacity`. The initial state is assigned from
/// `kFreshModel`, which costs a copy.
template <unsigned kCapacity>
class SymbolModel
{
public:
    SymbolModel() = default; ///< nothing is set, not even its memory touched; a fresh model must be assigned

    /// The initial state for `symbols` symbols.
    static constexpr SymbolModel fresh(unsigned symbols)
    {
        SymbolModel model{Zeroed{}};
        model._symbols = symbols;
        model._total = symbols;
        model._cycle = model._countdown = (symbols + 6) >> 1;
        for (unsigned k = 0; k < symbols; ++k) {
            model._count[k] = 1;
            model._bounds[kLead + k] = static_cast<uint16_t>((((1u << 31) / symbols) * k) >> 16);
        }
        for (unsigned k = symbols; k < kPadded + 1; ++k)
            model._bounds[kLead + k] = kNeverReached;
        for (uint16_t& end : model._groupEnds)
            end = kNeverReached;
        model.setGroupEnds();
        return model;
    }

private:
    friend class ArithmeticDecoder;

    struct Zeroed
    {
    };
    constexpr explicit SymbolModel(Zeroed)
        : _bounds{}, _groupEnds{}, _count{}, _symbols(0), _likely(0), _total(0), _cycle(0), _countdown(0)
    {
    }

    static constexpr unsigned kGroupSize = kCapacity > 256 ? 32 : 16;
    static constexpr unsigned kPadded = (kCapacity + kGroupSize - 1) / kGroupSize * kGroupSize;
    static constexpr unsigned kGroups = (kPadded / kGroupSize + 7) / 8 * 8;
    static constexpr bool kGrouped = kCapacity > 64;
    static constexpr unsigned kLead = 7; ///< unused bounds that align the one of symbol 1
    static constexpr uint16_t kNeverReached = 0xFFFF;
    static constexpr uint32_t kScaleBits = 15;
    static constexpr uint32_t kMaxTotal = 1u << kScaleBits;

    /// How many of the `n` ascending values are at most `x`. Counting all of them needs no branch and fits
    /// vector registers.
    template <unsigned n>
    static unsigned countAtMost(const uint16_t* values, uint16_t x)
    {
#ifdef __SSE2__
        // They are ascending, so the bits of those that count are the lowest, one for each.
        static_assert(n % 8 == 0 && n <= 64, "a bit each; at least one value is above");
        const __m128i limit = _mm_set1_epi16(static_cast<short>(x));
        const auto atMost = [&](unsigned k) {
            if (k >= n) return _mm_setzero_si128();
            const __m128i eight = _mm_load_si128(reinterpret_cast<const __m128i*>(values + k));
            return _mm_cmpeq_epi16(_mm_subs_epu16(eight, limit), _mm_setzero_si128());
        };
        uint64_t above = ~uint64_t{0};
#pragma GCC unroll 4
        for (unsigned k = 0; k < n; k += 16)
            above ^=
                uint64_t{static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(atMost(k), atMost(k + 8))))}
                << k;
        return static_cast<unsigned>(__builtin_ctzll(above));
#else
        uint16_t count = 0;
        for (unsigned k = 0; k < n; ++k)
            count = static_cast<uint16_t>(count + (values[k] <= x));
        return count;
#endif
    }

    /// The symbol whose interval holds `x`, in units of 2^-15 of the whole.
    unsigned find(uint16_t x) const
    {
        if constexpr (kGrouped) {
            const unsigned group = kGroupSize * countAtMost<kGroups>(_groupEnds, x);
            return group + countAtMost<kGroupSize>(_bounds + kLead + 1 + group, x);
        } else
            return countAtMost<kPadded>(_bounds + kLead + 1, x);
    }

    uint32_t low(unsigned symbol) const
    {
        return _bounds[kLead + symbol];
    }

    /// Greater than the whole for the last symbol, which also gets what the division by 2^15 left over.
    uint32_t high(unsigned symbol) const
    {
        return _bounds[kLead + symbol + 1];
    }

    void halve()
    {
        _total = 0;
        for (unsigned k = 0; k < _symbols; ++k) {
            _count[k] = static_cast<uint16_t>((_count[k] + 1) >> 1);
            _total += _count[k];
        }
    }

    [[gnu::noinline]] void update()
    {
        _total += _cycle;
        if (_total > kMaxTotal) halve();
        setBounds((1u << 31) / _total);
        setGroupEnds();
        _likely = mostFrequent();
        const uint32_t longest = 8 * (_symbols + 6);
        const uint32_t longer = (5 * _cycle) >> 2;
        _cycle = longer < longest ? longer : longest;
        _countdown = _cycle;
    }

    /// Each bound is the sum of the counts below times `scale` / 2^16.
    void setBounds(uint32_t scale)
    {
#ifdef __SSE2__
        const __m128i upperScale = _mm_set1_epi16(static_cast<short>(scale >> 16));
        const __m128i lowerScale = _mm_set1_epi16(static_cast<short>(scale & 0xFFFF));
        __m128i sumBelow = _mm_setzero_si128();
        for (unsigned k = 0; k < _symbols; k += 8) {
            __m128i sums = _mm_load_si128(reinterpret_cast<const __m128i*>(_count + k));
            sums = _mm_add_epi16(sums, _mm_slli_si128(sums, 2));
            sums = _mm_add_epi16(sums, _mm_slli_si128(sums, 4));
            sums = _mm_add_epi16(sums, _mm_slli_si128(sums, 8));
            sums = _mm_add_epi16(sums, sumBelow);
            const __m128i bounds =
                _mm_add_epi16(_mm_mullo_epi16(upperScale, sums), _mm_mulhi_epu16(lowerScale, sums));
            _mm_store_si128(reinterpret_cast<__m128i*>(_bounds + kLead + 1 + k), bounds);
            sumBelow = _mm_shuffle_epi32(_mm_shufflehi_epi16(sums, 0xFF), 0xFF);
        }
        for (unsigned k = _symbols; k <= (_symbols + 7) / 8 * 8; ++k)
            _bounds[kLead + k] = kNeverReached;
#else
        uint32_t sumBelow = 0;
        for (unsigned k = 0; k < _symbols; ++k) {
            _bounds[kLead + k] = static_cast<uint16_t>((scale * sumBelow) >> 16);
            sumBelow += _count[k];
        }
#endif
    }

    unsigned mostFrequent() const
    {
#ifdef __SSE2__
        const auto counts = [&](unsigned k) {
            return _mm_load_si128(reinterpret_cast<const __m128i*>(_count + k));
        };
        __m128i most = counts(0); // signed: there are two symbols at least, so each count is below 2^15
        for (unsigned k = 8; k < _symbols; k += 8)
            most = _mm_max_epi16(most, counts(k));
        most = _mm_max_epi16(most, _mm_shuffle_epi32(most, _MM_SHUFFLE(1, 0, 3, 2)));
        most = _mm_max_epi16(most, _mm_shuffle_epi32(most, _MM_SHUFFLE(2, 3, 0, 1)));
        most = _mm_max_epi16(most, _mm_slli_epi32(most, 16));
        most = _mm_max_epi16(most, _mm_srli_epi32(most, 16));
        unsigned found = 0;
        unsigned k = 0;
        for (; found == 0; k += 8)
            found = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(counts(k), most)));
        return k - 8 + static_cast<unsigned>(__builtin_ctz(found)) / 2;
#else
        return static_cast<unsigned>(std::max_element(_count, _count + _symbols) - _count);
#endif
    }

    constexpr void setGroupEnds()
    {
        if constexpr (kGrouped)
            for (unsigned k = kGroupSize; k < _symbols; k += kGroupSize)
                _groupEnds[k / kGroupSize - 1] = _bounds[kLead + k];
    }

    /// From `kLead` on the lower end of each symbol's interval, in units of 2^-15, then `kNeverReached`.
    alignas(16) uint16_t _bounds[kLead + 1 + kPadded];
    alignas(16) uint16_t _groupEnds[kGroups]; ///< lower ends of every kGroupSize-th symbol but the first
    alignas(16) uint16_t _count[kPadded];
    uint32_t _symbols;
    uint32_t _likely; ///< the most frequent symbol when the model was last updated
    uint32_t _total;
    uint32_t _cycle;
    uint32_t _countdown;
};

template <unsigned kSymbols>
inline constexpr SymbolModel<kSymbols> kFreshModel = SymbolModel<kSymbols>::fresh(kSymbols);

/// Adaptive binary arithmetic decoder over bytes in memory. Reading behind the last byte gives zeros and
/// makes `overrun()` true for good: whoever decodes a bounded number of values may check once at the end.
/// `corrupt()` tells a value that no encoder writes.
class ArithmeticDecoder
{
public:
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

    unsigned bit(BitModel& model)
    {
        const uint32_t split = model._zeroProbability * (_length >> BitModel::kScaleBits);
        const unsigned result = _value >= split;
        if (result) {
            _value -= split;
            _length -= split;
        } else {
            _length = split;
            ++model._zeros;
        }
        renormalise();
        if (--model._countdown == 0) model.update();
        return result;
    }

    /// The next symbol. Tries the one that has been the most frequent first: where that is right, it costs no
    /// division and no search, and the processor need not wait for either.
    template <unsigned kCapacity>
    unsigned symbol(SymbolModel<kCapacity>& model)
    {
        const uint32_t unit = _length >> SymbolModel<kCapacity>::kScaleBits;
        const unsigned likely = model._likely;
        const auto [low, width] = interval(model, likely, unit);
        if (_value - low < width) return narrow(model, likely, low, width);
        return search(model, unit);
    }

    /// The same for symbols that are about equally likely.
    template <unsigned kCapacity>
    [[gnu::always_inline]] unsigned evenSymbol(SymbolModel<kCapacity>& model)
    {
        return search(model, _length >> SymbolModel<kCapacity>::kScaleBits);
    }

    /// `n` equally likely bits, 1 <= n <= 32.
    uint32_t bits(unsigned n)
    {
        if (n <= 19) return shortBits(n);
        const uint32_t lower = shortBits(16);
        return shortBits(n - 16) << 16 | lower;
    }

    uint64_t bits64()
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
    struct Interval
    {
        uint32_t low;
        uint32_t width;
    };

    template <unsigned kCapacity>
    Interval interval(const SymbolModel<kCapacity>& model, unsigned symbol, uint32_t unit) const
    {
        const uint32_t low = model.low(symbol) * unit;
        const uint64_t high = uint64_t{model.high(symbol)} * unit;
        return {low, (high < _length ? static_cast<uint32_t>(high) : _length) - low};
    }

    template <unsigned kCapacity>
    [[gnu::always_inline]] unsigned search(SymbolModel<kCapacity>& model, uint32_t unit)
    {
        const unsigned symbol = model.find(static_cast<uint16_t>(_value / unit));
        const auto [low, width] = interval(model, symbol, unit);
        return narrow(model, symbol, low, width);
    }

    template <unsigned kCapacity>
    [[gnu::always_inline]] unsigned narrow(SymbolModel<kCapacity>& model, unsigned symbol, uint32_t low,
                                           uint32_t width)
    {
        _value -= low;
        _length = width;
        renormalise();
        ++model._count[symbol];
        if (--model._countdown == 0) model.update();
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

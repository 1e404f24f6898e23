#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

/// \file
/// The probabilities that a decoder and an encoder keep alike.

namespace VelBrx::Laz {

/// Adaptive probability of one binary decision. A default-constructed model is in its initial state.
class BitModel
{
private:
    friend class ArithmeticDecoder;
    friend class ArithmeticEncoder;

    static constexpr uint32_t kScaleBits = 13;
    static constexpr uint32_t kMaxTotal = 1u << kScaleBits;
    static constexpr uint32_t kMaxCycle = 64;

    /// After each bit.
    void count(unsigned bit)
    {
        _zeros += 1 - bit;
        if (--_countdown == 0) update();
    }

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
    friend class ArithmeticEncoder;

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

    /// Part of a length that a symbol has.
    struct Interval
    {
        uint32_t low;
        uint32_t width;
    };

    /// Of `length`, whose 2^-15th part is `unit`.
    Interval interval(unsigned symbol, uint32_t unit, uint32_t length) const
    {
        const uint32_t start = low(symbol) * unit;
        const uint64_t end = uint64_t{high(symbol)} * unit;
        return {start, (end < length ? static_cast<uint32_t>(end) : length) - start};
    }

    void count(unsigned symbol)
    {
        ++_count[symbol];
        if (--_countdown == 0) update();
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

} // namespace VelBrx::Laz

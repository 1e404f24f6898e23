#pragma once

#include "store/las/laz/ArithmeticDecoder.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace VelBrx::Laz {

/// Symbol models that are chosen by a value of the point before; most are never touched, so each is set up on
/// its first use in a chunk.
template <unsigned kSymbols, unsigned kModels>
class ModelTable
{
public:
    void reset() { std::fill(std::begin(_used), std::end(_used), false); }

    SymbolModel<kSymbols>& operator[](unsigned index)
    {
        if (!_used[index]) {
            _used[index] = true;
            _models[index] = kFreshModel<kSymbols>;
        }
        return _models[index];
    }

private:
    bool _used[kModels] = {};
    SymbolModel<kSymbols> _models[kModels];
};

/// Running median of about five values: every added value drives out the largest or the smallest.
class RunningMedian
{
public:
    uint32_t median() const { return static_cast<uint32_t>(_sorted[2]); }

    void add(uint32_t bits)
    {
        const auto value = static_cast<int32_t>(bits);
        const int32_t median = _sorted[2];
        const int32_t* kept = _sorted + (_dropLargest ^ 1);
        const int32_t a = kept[0], b = kept[1], c = kept[2], d = kept[3];
        _sorted[0] = smaller(a, value);
        _sorted[1] = smaller(larger(a, value), b);
        _sorted[2] = smaller(larger(b, value), c);
        _sorted[3] = smaller(larger(c, value), d);
        _sorted[4] = larger(d, value);
        _dropLargest = static_cast<unsigned>(value < median) |
                       (static_cast<unsigned>(value == median) & (_dropLargest ^ 1));
    }

private:
    // Branches on coordinates would often be mispredicted. The compiler makes them of std::min and std::max,
    // which take references, and of a condition.
    static int32_t smaller(int32_t a, int32_t b) { return a < b ? a : b; }
    static int32_t larger(int32_t a, int32_t b) { return a < b ? b : a; }

    int32_t _sorted[5] = {0, 0, 0, 0, 0};
    unsigned _dropLargest = 1; ///< 0 drops the smallest
};

/// Context of a width that follows another's: widths in pairs, all from `cap` on in one.
inline unsigned widthContext(unsigned width, unsigned cap)
{
    return width < cap ? width & ~1u : cap;
}

inline uint8_t addBytes(unsigned a, unsigned b)
{
    return static_cast<uint8_t>(a + b);
}

inline int clampToByte(int value)
{
    return std::min(std::max(value, 0), 255);
}

/// A class of points by return number and number of returns, three bits each.
inline constexpr uint8_t kReturnClass8[8][8] = {
    {15, 14, 13, 12, 11, 10, 9, 8},  {14, 0, 1, 3, 6, 10, 10, 9},   {13, 1, 2, 4, 7, 11, 11, 10},
    {12, 3, 4, 5, 8, 12, 12, 11},    {11, 6, 7, 8, 9, 13, 13, 12},  {10, 10, 11, 12, 13, 14, 14, 13},
    {9, 10, 11, 12, 13, 14, 15, 14}, {8, 9, 10, 11, 12, 13, 14, 15}};

/// The same for four bits each.
inline constexpr uint8_t kReturnClass16[16][16] = {
    {0, 1, 2, 3, 4, 5, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5}, {1, 0, 1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3},
    {2, 1, 2, 4, 4, 4, 4, 4, 4, 4, 4, 3, 3, 3, 3, 3}, {3, 3, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4},
    {4, 3, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4}, {5, 3, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4},
    {3, 3, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4}, {4, 3, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4},
    {4, 3, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4}, {5, 3, 4, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4},
    {5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4}, {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 4, 4, 4},
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 4, 4}, {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 4},
    {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5}, {5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5}};

/// Distance of a return from the last one, at most 7.
inline unsigned returnLevel(unsigned returnNumber, unsigned returnCount)
{
    return static_cast<unsigned>(
        std::min(7, std::abs(static_cast<int>(returnCount) - static_cast<int>(returnNumber))));
}

} // namespace VelBrx::Laz

#pragma once

#include "edit/PointTest.h"
#include "simd/VectorClones.h"

#include <VelBrx/PointRecord.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

/// The integer coordinates of consecutive records, packed so that arithmetic runs over plain arrays. Behind
/// the last record they are 0.
struct RecordBlock
{
    static constexpr int kSize = PointTest::kBlock;

    /// Factors of X, Y, Z and the constant.
    using Linear = std::array<double, 4>;

    double x[kSize];
    double y[kSize];
    double z[kSize];

    RecordBlock(const uint8_t* records, int count)
    {
        for (int i = 0; i < count; ++i) {
            const uint8_t* record = records + static_cast<size_t>(i) * VelBrx::PointRecord::kPointSize;
            // The next block comes from memory while this one is tested.
            __builtin_prefetch(record + kSize * VelBrx::PointRecord::kPointSize);
            int32_t xyz[3];
            std::memcpy(xyz, record, sizeof xyz);
            x[i] = xyz[0];
            y[i] = xyz[1];
            z[i] = xyz[2];
        }
        std::fill(x + count, x + kSize, 0.0);
        std::fill(y + count, y + kSize, 0.0);
        std::fill(z + count, z + kSize, 0.0);
    }

    double apply(const Linear& f, int i) const { return x[i] * f[0] + y[i] * f[1] + z[i] * f[2] + f[3]; }
};

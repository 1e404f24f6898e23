#pragma once

#include <cstdint>

/// One point as a test states it; `pack` makes the 36-byte record of a store.
struct TestPoint
{
    int32_t x = 0, y = 0, z = 0; ///< steps of the store's scale
    uint16_t intensity = 0;
    uint8_t returnNumber = 1, numberOfReturns = 1;
    uint8_t flags = 0; ///< byte 15: hidden bits, channel, direction, edge
    uint8_t classCode = 0, userData = 0;
    int16_t scanAngle = 0;
    uint16_t sourceId = 0;
    double gpsTime = 0;
    uint16_t red = 0, green = 0, blue = 0;

    void pack(uint8_t* record) const;
};

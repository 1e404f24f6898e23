#include "tests/support/TestPoint.h"

#include "store/io/ByteIo.h"

void TestPoint::pack(uint8_t* record) const
{
    using VelBrx::storeLe;
    storeLe(record, x);
    storeLe(record + 4, y);
    storeLe(record + 8, z);
    storeLe(record + 12, intensity);
    storeLe(record + 14, static_cast<uint8_t>(returnNumber | numberOfReturns << 4));
    storeLe(record + 15, flags);
    storeLe(record + 16, classCode);
    storeLe(record + 17, userData);
    storeLe(record + 18, scanAngle);
    storeLe(record + 20, sourceId);
    storeLe(record + 22, gpsTime);
    storeLe(record + 30, red);
    storeLe(record + 32, green);
    storeLe(record + 34, blue);
}

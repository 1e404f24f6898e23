#include <VelOsgDBBrx/CellData.h>

CellData::CellData(const VelBrx::CellWithSegment& cellRecord)
    : identifier(cellRecord.identifier), record(cellRecord)
{
}

CellData::~CellData() = default;

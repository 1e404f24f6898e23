#include "edit/RecordScreenTest.h"

#include "edit/ScreenMask.h"

RecordScreenTest::RecordScreenTest(const osg::Vec3d& scale, const osg::Matrixd& localToWindow,
                                   const std::vector<osg::Vec4d>& localPlanes, const ScreenMask& mask,
                                   bool outside)
    : _mask(mask), _outside(outside)
{
    const osg::Matrixd m = osg::Matrixd::scale(scale) * localToWindow;
    for (int i = 0; i < 4; ++i) {
        _column[i] = m(i, 0);
        _row[i] = mask.height() * m(i, 3) - m(i, 1);
        _w[i] = m(i, 3);
    }
    for (const osg::Vec4d& p : localPlanes)
        _planes.push_back({p[0] * scale[0], p[1] * scale[1], p[2] * scale[2], p[3]});
}

void RecordScreenTest::test(const uint8_t* records, int count, uint8_t* accepted) const
{
    test(RecordBlock(records, count), accepted);
}

void RecordScreenTest::test(const RecordBlock& block, uint8_t* accepted) const
{
    lookUp(block, accepted);
    for (const Linear& plane : _planes)
        keepPositive(plane, block, accepted);
}

VELBRX_VECTOR_CLONES
void RecordScreenTest::lookUp(const RecordBlock& block, uint8_t* accepted) const
{
    const Linear columnFactors = _column;
    const Linear rowFactors = _row;
    const Linear wFactors = _w;
    const double width = _mask.width();
    const double height = _mask.height();
    const int32_t pitch = _mask.pitch();
    int32_t place[kBlock];
    int32_t seen[kBlock]; // as wide as the places: the loop keeps to whole registers
    for (int i = 0; i < kBlock; ++i) {
        const double w = block.apply(wFactors, i);
        const double column = block.apply(columnFactors, i) / w;
        const double row = block.apply(rowFactors, i) / w;
        // Places are truncated to whole pixels: what lies less than a pixel beyond the first column or row
        // counts to it.
        const bool inWindow = (w > 0) & (column > -1) & (column < width) & (row > -1) & (row < height);
        seen[i] = inWindow;
        place[i] = static_cast<int32_t>(inWindow ? row : 0.0) * pitch +
                   static_cast<int32_t>(inWindow ? column : 0.0);
    }
    const uint8_t* inside = _mask.data();
    uint8_t covered[kBlock];
    for (int i = 0; i < kBlock; ++i)
        covered[i] = inside[place[i]];
    const bool outside = _outside;
    for (int i = 0; i < kBlock; ++i)
        accepted[i] = (covered[i] != 0 && seen[i]) != outside;
}

VELBRX_VECTOR_CLONES
void RecordScreenTest::keepPositive(const Linear& plane, const RecordBlock& block, uint8_t* accepted)
{
    for (int i = 0; i < kBlock; ++i)
        accepted[i] = block.apply(plane, i) >= 0 ? accepted[i] : 0;
}

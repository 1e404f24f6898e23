#include "tests/support/LasRecords.h"

#include <osg/Viewport>
#include <osg/ref_ptr>

#include <cmath>
#include <cstring>
#include <utility>

namespace {

template <class T>
T fieldAt(const Bytes& bytes, size_t position)
{
    T value;
    std::memcpy(&value, bytes.data() + position, sizeof value);
    return value;
}

} // namespace

bool contains(const Polygon& polygon, double x, double y)
{
    bool inside = false;
    for (size_t i = 0; i < polygon.size(); ++i) {
        const osg::Vec2d a = polygon[i];
        const osg::Vec2d b = polygon[(i + 1) % polygon.size()];
        if ((a.y() <= y) == (b.y() <= y)) continue;
        if (a.x() + (y - a.y()) / (b.y() - a.y()) * (b.x() - a.x()) > x) inside = !inside;
    }
    return inside;
}

LasRecords::LasRecords(const std::string& path) : LasRecords(readFile(path)) {}

LasRecords::LasRecords(Bytes file) : _bytes(std::move(file))
{
    _start = fieldAt<uint32_t>(_bytes, 96);
    _count = fieldAt<uint64_t>(_bytes, 247);
}

osg::Vec3d LasRecords::offset() const
{
    return osg::Vec3d(fieldAt<double>(_bytes, 155), fieldAt<double>(_bytes, 163),
                      fieldAt<double>(_bytes, 171));
}

osg::Vec3d LasRecords::position(size_t point) const
{
    osg::Vec3d position = offset();
    for (int axis = 0; axis < 3; ++axis)
        position[axis] +=
            fieldAt<int32_t>(_bytes, record(point) + 4 * axis) * fieldAt<double>(_bytes, 131 + 8 * axis);
    return position;
}

double LasRecords::gpsTime(size_t point) const
{
    return fieldAt<double>(_bytes, record(point) + 22);
}

LasRecords hidden(LasRecords records, const std::vector<bool>& which)
{
    for (size_t i = 0; i < records.size(); ++i)
        if (which[i] && !(records.flags(i) & kHiddenBits)) records.flags(i) |= kCulledBit;
    return records;
}

LasRecords shown(LasRecords records, const std::vector<bool>& which)
{
    for (size_t i = 0; i < records.size(); ++i)
        if (which[i]) records.flags(i) &= static_cast<uint8_t>(~kHiddenBits);
    return records;
}

Screen Screen::lookingAt(const osg::Vec3d& eye, const osg::Vec3d& center)
{
    Screen screen;
    screen.view = osg::Matrixd::lookAt(eye, center, osg::Vec3d(0, 0, 1));
    screen.projection = osg::Matrixd::perspective(40, 1.0 * screen.width / screen.height, 1, 1000);
    return screen;
}

osg::Matrixd Screen::vpw() const
{
    const osg::ref_ptr<osg::Viewport> viewport = new osg::Viewport(0, 0, width, height);
    return view * projection * viewport->computeWindowMatrix();
}

std::vector<bool> pointsUnder(const LasRecords& records, const Polygon& polygon, const Screen& screen,
                              const osg::Matrixd& localToWorld)
{
    std::vector<bool> under(records.size());
    for (size_t i = 0; i < records.size(); ++i) {
        const osg::Vec3d local = records.position(i) - records.offset();
        const osg::Vec4d window = osg::Vec4d(local, 1) * localToWorld * screen.vpw();
        if (window.w() <= 0) continue;
        const double x = window.x() / window.w();
        const double row = screen.height - window.y() / window.w();
        if (x <= -1 || x >= screen.width || row <= -1 || row >= screen.height) continue;
        under[i] = contains(polygon, std::trunc(x) + 0.5, std::trunc(row) + 0.5);
    }
    return under;
}

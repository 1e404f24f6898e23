#pragma once

#include "tests/support/ReadFile.h"

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec3d>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What an edit of a store must do, worked out from the file's bytes with nothing of the library.

using Polygon = std::vector<osg::Vec2d>;
using Bytes = std::vector<uint8_t>;

/// The point records of a store, read from the bytes of its file as any LAS reader would.
class LasRecords
{
public:
    explicit LasRecords(const std::string& path);
    explicit LasRecords(Bytes file);

    size_t size() const { return _count; }
    osg::Vec3d offset() const;

    /// File coordinates.
    osg::Vec3d position(size_t point) const;

    /// Bits 8 to 15 of the flag word.
    uint8_t& flags(size_t point) { return _bytes[record(point) + 15]; }
    uint8_t flags(size_t point) const { return _bytes[record(point) + 15]; }
    uint8_t& classOf(size_t point) { return _bytes[record(point) + 16]; }
    uint8_t classOf(size_t point) const { return _bytes[record(point) + 16]; }
    double gpsTime(size_t point) const;

    /// All bytes of the file.
    const Bytes& bytes() const { return _bytes; }

private:
    size_t record(size_t point) const { return _start + 36 * point; }

    Bytes _bytes;
    size_t _start = 0;
    size_t _count = 0;
};

constexpr uint8_t kHiddenBits = 0x0F; ///< of a record's flags; any of them hides the point
constexpr uint8_t kCulledBit = 0x04;  ///< the one that a cull sets

/// What the records are after points have been hidden or shown.
LasRecords hidden(LasRecords records, const std::vector<bool>& which);
LasRecords shown(LasRecords records, const std::vector<bool>& which);

/// A window and the camera that draws into it.
struct Screen
{
    int width = 200;
    int height = 150;
    osg::Matrixd view;
    osg::Matrixd projection;

    /// Looks at `center`, local coordinates, from `eye`, with a vertical field of view of 40 degrees.
    static Screen lookingAt(const osg::Vec3d& eye, const osg::Vec3d& center);

    osg::Matrixd vpw() const;
};

/// Whether a place lies in a polygon, by the even-odd rule.
bool contains(const Polygon& polygon, double x, double y);

/// Which points an edit must act on: found point by point from the records, the camera and the polygon's
/// vertices, with nothing of the library. The polygon runs from the window's top; a pixel counts when its
/// centre lies in the polygon.
std::vector<bool> pointsUnder(const LasRecords& records, const Polygon& polygon, const Screen& screen,
                              const osg::Matrixd& localToWorld = osg::Matrixd());

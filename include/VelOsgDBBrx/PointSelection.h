#pragma once

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/ScreenPolygon.h>

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osg/Vec4d>

#include <bitset>
#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace VelOsgDBBrx {

/// Every point of the clouds.
struct Everywhere
{
};

/// What lies under a polygon in a window, seen by a camera: `CullCmd` says which pixels and points that is.
struct ScreenPlace
{
    std::vector<osg::Vec2d> polygon; ///< pixels from the window's top left, y down; closed implicitly
    osg::Matrixd vpw;                ///< view x projection x window: world coordinates to pixels, y up
    int width = 0;                   ///< of the window, pixels
    int height = 0;

    /// Not empty: only the front surface, which is what the eye sees. A point is taken when it lies at most
    /// so far behind the nearest point, in units of the world along the view. That is the nearest of the
    /// pixels at most `frontRadius` away to each side, among all points under the polygon that `drawn`
    /// allows, loaded or not, whatever their attributes.
    std::optional<double> frontTolerance = std::nullopt;
    double frontRadius = 2; ///< pixels, 0 to 1000: closes the gaps between the points in front
};

/// Numbers from `low` to `high`, both included; all numbers at first.
struct ValueRange
{
    double low = -std::numeric_limits<double>::infinity();
    double high = std::numeric_limits<double>::infinity();

    bool isWhole() const
    {
        return low == -std::numeric_limits<double>::infinity() &&
               high == std::numeric_limits<double>::infinity();
    }
};

/// The prism over a polygon on the map. It needs no camera and knows no pixels: world coordinates are
/// compared in double precision. A point on an edge belongs to the side with larger x, or with larger y where
/// the edge runs along x: of two polygons that share an edge exactly one has it.
struct MapPlace
{
    std::vector<osg::Vec2d> polygon; ///< x and y of the world; closed implicitly, may cross itself (even-odd)
    ValueRange heights;              ///< z of the world
};

/// A box along the axes of the world, its faces included.
struct BoxPlace
{
    osg::Vec3d low;
    osg::Vec3d high;
};

/// A sphere, its surface included.
struct SpherePlace
{
    osg::Vec3d center;
    double radius = 0;
};

/// What grows together with a point: all that is reached from it by steps to neighbours, over the points of
/// all clouds that attributes, what is selected and what is drawn leave.
struct GrownPlace
{
    osg::Vec3d from;     ///< growth begins with the point nearest to it, at most `distance` away
    double distance = 0; ///< of neighbours, at most

    /// Degrees, above 0 to 90. Not empty: a neighbour's local plane must be like that of the first point, up
    /// to this angle. One whose plane is not, as at an edge, is taken where it lies in the plane of a point
    /// that is like, and does not grow on.
    std::optional<double> angle = std::nullopt;

    int limit = 1000000; ///< growth ends with so many points
};

/// Ranges of what a point's record says. A point is in when it is in all of them.
struct AttributeRanges
{
    std::bitset<256> classes = std::bitset<256>().set(); ///< current ones, unsaved edits included
    ValueRange returnNumber;
    ValueRange numberOfReturns;
    ValueRange intensity; ///< 0 to 65535
    ValueRange height;    ///< z of the world
    ValueRange source;    ///< point source id: the flight line
    ValueRange gpsTime;   ///< as in the file; 0 in every point whose source had none; NaN is in no range
    ValueRange scanAngle; ///< degrees; compared in the steps of 0.006 degrees that a record has
    std::optional<bool> hidden;
};

/// What the picture leaves out; an edit leaves it alone unless `PointSelection::undrawnToo`.
struct DrawnPoints
{
    /// World coordinates; a point is drawn where a x + b y + c z + d >= 0 for all.
    std::vector<osg::Vec4d> clipPlanes;

    /// Consecutive groups of `planesPerSection` planes; a point is drawn on the positive side of every plane
    /// of at least one group. None: no section.
    std::vector<osg::Vec4d> sectionPlanes;
    int planesPerSection = 0; ///< below 1: all of them are one group

    std::bitset<256> shownClasses = std::bitset<256>().set();
    std::vector<ScreenSegment> segments; ///< of `SelectSegmentStack`
};

/// Which points an edit is about: a place, ranges of attributes, and what the picture shows. Coordinates are
/// those of the world, where the clouds stand in the scene when the edit is asked for. A value; copies share
/// nothing.
struct PointSelection
{
    std::variant<Everywhere, ScreenPlace, MapPlace, BoxPlace, SpherePlace, GrownPlace> place;
    bool outside = false;                ///< all but the place, wherever it is
    std::vector<ScreenPolygon> selected; ///< not empty: of these points only what the polygons select
    AttributeRanges attributes;
    DrawnPoints drawn;
    bool undrawnToo = false; ///< `drawn` does not count, and hidden points may change class
};

/// Success when the selection means something: enough vertices, finite coordinates, ranges in order, matrices
/// and windows where there are polygons of the screen. Any thread may call it and those below.
VEL_OSGDB_BRX_EXPORT VelBrx::Status checkSelection(const PointSelection& selection);

/// A selection as one line of JSON, which docs/selections.md describes: what a journal keeps of an edit and
/// what scripts have. Of a selection that `checkSelection` accepts; all numbers come back bit for bit.
VEL_OSGDB_BRX_EXPORT std::string selectionText(const PointSelection& selection);

/// Reads such a text. A failure says in one line what is wrong with which key, and leaves `selection` as it
/// was. Success means that `checkSelection` accepts it.
VEL_OSGDB_BRX_EXPORT VelBrx::Status readSelection(const std::string& text, PointSelection& selection);

} // namespace VelOsgDBBrx

#pragma once

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Export.h>
#include <VelThreads/Mutex.h>

#include <osg/Image>
#include <osg/Matrixd>
#include <osg/Referenced>
#include <osg/Vec2d>
#include <osg/Vec4d>
#include <osg/ref_ptr>

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Requests to change the class of points, for `CategoryCalcTool`. A client fills an edit record, wraps it in
/// a `Category` and pushes that; it does not touch them again until the request has been handled.
///
/// Copying a record copies every field; what its `ref_ptr` members hold is shared.
namespace VelOsgDBBrx {

/// What an edit found and did.
struct VEL_OSGDB_BRX_EXPORT CategoryCounts
{
    uint64_t selected = 0; ///< points that the edit reaches: in the selection and visible
    uint64_t changed = 0;  ///< points whose class differs afterwards (would differ, in a dry run)
    std::array<uint64_t, 256> before{}; ///< the selected points by class before the edit
    std::array<uint64_t, 256> after{};  ///< the same points by class after it
    /// Cells of which some records could not be mapped: points of these are left out.
    uint64_t cellsUnreadable = 0;
    unsigned storesBusy = 0;          ///< stores for which a request was refused: another process edits them
    unsigned storesNotJournalled = 0; ///< the same: their journal cannot be written; see EditJournalling

    CategoryCounts& operator+=(const CategoryCounts& other);
};

/// What a request did, and the means to wait for it. Any thread may call it.
class VEL_OSGDB_BRX_EXPORT CategoryReport : public osg::Referenced
{
public:
    enum State
    {
        WAITING,  ///< queued or running
        DONE,     ///< handled
        REFUSED,  ///< nothing was done; `status` says why
        ABANDONED ///< never handled: the tool was shut down first
    };

    using Counts = CategoryCounts;

    /// Returns once the request has been handled or given up.
    State wait() const;

    State state() const;

    /// One line that says why a request was refused; success otherwise.
    VelBrx::Status status() const;

    /// Of an edit: as the members say. Of an undo, a reset: `changed` and `storesNotJournalled` alone.
    Counts counts() const;

    /// The tool's side: stores what is known; every state but WAITING ends the wait.
    void set(State state, VelBrx::Status status = {}, const Counts& counts = {});

protected:
    ~CategoryReport() override = default;

private:
    mutable VelThreads::Mutex _mutex;
    mutable VelThreads::Condition _finished;
    State _state VEL_GUARDED_BY(_mutex) = WAITING;
    VelBrx::Status _status VEL_GUARDED_BY(_mutex);
    Counts _counts VEL_GUARDED_BY(_mutex);
};

/// One request in the tool's queue.
struct VEL_OSGDB_BRX_EXPORT Category : public osg::Referenced
{
    /// The tool ignores any other kind. Of the edits, the type of the payload decides what is done; their
    /// kinds name the payload for whoever logs or replays requests.
    enum Kind
    {
        POLYGON = 0, ///< payload `PolygonCmd` or `Package`
        MASK = 1,    ///< payload `PixelBuffer`
        POINTS = 2,  ///< payload `CategoryBuffer`
        UNDO = 3,    ///< takes back the newest edit; as `CategoryCalcTool::pop`
        RESET = 4,   ///< takes back every edit since the last save; as `CategoryCalcTool::reset`
        SAVE = 5     ///< the current classes become the baseline of RESET; as `CategoryCalcTool::save`
    };

    Category() = default;
    /// An edit, its kind taken from the record's type.
    Category(const std::string& cloudUid, osg::Referenced* editRecord);

    int32_t kind = POLYGON;

    /// The point cloud, by the name under which `CategoryCalcTool::registerCloud` knows it, under which its
    /// changes are reported, and under which `PCViewerManager` knows the view to redraw. Where no cloud goes
    /// by that name, the view's: every cloud of its scene is meant. An edit needs one.
    std::string uid;

    osg::ref_ptr<osg::Referenced> payload;

    /// Filled by the tool when there is one; it begins to wait anew with each push.
    osg::ref_ptr<CategoryReport> report;

    /// Count only: nothing is changed and nothing is kept for undo.
    bool dryRun = false;

    /// What the stores' journals say was done, JSON as scripts have it; see EditJournalling. Without it the
    /// class alone.
    std::string operation;
};

/// A selection on the screen, which of its points may change, and the class that they get.
///
/// A point is edited when all of this holds:
/// - it lies in front of the camera and under the mask of the polygon, as for `CullCmd`;
/// - it is visible: not hidden, inside `planesA` and `planesB`, and of a class in `shownClasses`;
///   `flag` waives these one by one;
/// - `classTable` lets its class change.
///
/// Every such point of the store is edited, also those of cells that are not loaded.
struct VEL_OSGDB_BRX_EXPORT Base : public osg::Referenced
{
    /// Bits of `flag`.
    enum Reach : uint8_t
    {
        VISIBLE_ONLY = 0,
        HIDDEN_POINTS = 1,  ///< hidden points too
        OUTSIDE_PLANES = 2, ///< points outside `planesA` and `planesB` too
        CLASSES_OFF = 4,    ///< points of classes that are not shown too
        EVERYTHING = 7
    };

    /// Clip planes (a, b, c, d) in world coordinates. A point is inside when a x + b y + c z + d >= 0 for
    /// all.
    std::vector<osg::Vec4d> planesA;

    uint8_t flag = VISIBLE_ONLY; ///< which points that nobody sees are edited too: bits of `Reach`

    /// Vertices in pixels from the top left of the window, y down; closed implicitly, may cross itself.
    std::vector<osg::Vec2d> polygon;

    /// Section planes in world coordinates: consecutive groups of `planesPerGroup` planes. A point is inside
    /// when it is on the positive side of every plane of at least one group. None: no section.
    std::vector<osg::Vec4d> planesB;

    /// The from-class filter: points of class c may change when entry c is not zero. All may at first. Class
    /// 255 has no entry; its points may change when every entry is set.
    std::array<int32_t, 255> classTable = allClasses();

    int32_t toClass = 0; ///< 0 to 255

    /// View x projection x window of the camera that the selection was made with: world coordinates to
    /// pixels, y up.
    osg::Matrixd vpw;

    int32_t width = 0; ///< of the window, pixels
    int32_t height = 0;

    int32_t planesPerGroup = 0; ///< of `planesB`; below 1: all of them are one group

    /// The classes that the display has switched on; all at first.
    std::bitset<256> shownClasses = std::bitset<256>().set();

    /// Lets the given classes change and no other. Codes outside 0 to 254 are ignored.
    void setFromClasses(const std::vector<int>& classes);

    /// A class table in which every class may change.
    static std::array<int32_t, 255> allClasses();
};

/// An edit of the points in a polygon. The mask is made by the tool's `PixelBufferTool`, or by a
/// `PolygonMaskTool` where there is none.
struct VEL_OSGDB_BRX_EXPORT PolygonCmd : public osg::Referenced
{
    Base base;

    /// The point cloud to edit, an `IPointCloud` or an `OctreeInfo`, or a group: all clouds under it, as one
    /// edit with one mask. Null: what the request's uid names.
    osg::ref_ptr<osg::Referenced> target;
};

/// An edit of the points under a mask that the client made, for instance with a brush. Without such a mask
/// the tool's `PixelBufferTool`, or a `PolygonMaskTool` where there is none, is asked for that of
/// `base.polygon`.
struct VEL_OSGDB_BRX_EXPORT PixelBuffer : public osg::Referenced
{
    Base base;
    osg::ref_ptr<osg::Referenced> target; ///< as in `PolygonCmd`

    /// Size of the mask in pixels. It is stretched over the window of `base.width` x `base.height`. Both 0,
    /// and no `mask`: the size of the window.
    int32_t maskWidth = 0;
    int32_t maskHeight = 0;

    /// The mask: data type GL_UNSIGNED_BYTE, first row of the data the top row of the window, first component
    /// of a pixel inside not zero. Null: made from `base.polygon`.
    osg::ref_ptr<osg::Image> mask;
};

/// An edit of points that the client names, each with a class of its own. No selection and no filter applies;
/// hidden points are left out unless `flag` lets them in.
struct VEL_OSGDB_BRX_EXPORT CategoryBuffer : public osg::Referenced
{
    /// By the uid of a registered point cloud: indices of points in its point file, in any order. Indices
    /// that the store does not have are ignored; of an index given twice the last counts.
    std::map<std::string, std::vector<int64_t>> points;

    /// By the same uid: the class of each of these points. Lists of different length refuse the request.
    std::map<std::string, std::vector<uint8_t>> classes;

    uint8_t flag = Base::VISIBLE_ONLY; ///< `Base::HIDDEN_POINTS` edits hidden points too
};

/// A prepared edit with another outline: what a client sends when it makes many edits with one camera, class
/// and filter.
struct VEL_OSGDB_BRX_EXPORT Package : public osg::Referenced
{
    osg::ref_ptr<osg::Referenced> target; ///< the prepared edit: a `PolygonCmd`, which is not changed
    std::vector<osg::Vec2d> polygon;      ///< takes the place of `base.polygon`
    std::vector<osg::Vec4d> planes;       ///< added to `base.planesA`
};

} // namespace VelOsgDBBrx

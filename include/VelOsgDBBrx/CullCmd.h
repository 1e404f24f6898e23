#pragma once

#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec4d>
#include <osg/observer_ptr>

#include <memory>
#include <string>
#include <vector>

class ChangeRecord;
class CloudPlaces;
class ScreenMask;

namespace VelOsgDBBrx {

/// Which points a polygon command acts on.
enum class Type
{
    INSIDE, ///< those that the mask of the polygon covers
    /// All others, wherever they are: beyond the window and behind the camera too, so that turning the camera
    /// shows nothing that was meant to go. A polygon of fewer than three vertices changes nothing.
    OUTSIDE
};

/// What `CullCmd` and `XorCullCmd` share: a polygon on the screen, the camera that it was drawn with, and the
/// point clouds that it acts on.
///
/// A point lies inside when it is in front of the camera and the mask that the manager's `PixelBufferTool`
/// makes of the polygon is set at column trunc(x), row trunc(height - y) of the point's window position
/// (x, y). Without a mask, or with a vertex that is not finite, nothing changes (`CmdResult::maskMissing`).
///
/// Hidden bits are kept in the store's point records, so that they outlast paging and the program, and in the
/// vertex attribute of loaded cells. The store's file is locked while the command works, cells that are not
/// loaded are tested straight from it. Cells beyond the polygon's rectangle are not read. A store whose file
/// cannot be written is left as it is (`CmdResult::storesReadOnly`), and so is one whose path leads to
/// another file by now or to none (`CmdResult::storesReplaced`), by an undo too. The undo record takes four
/// bytes for each point changed; none where the store's edits are journalled (`EditJournalling`).
///
/// After a kill in mid-command every point is either as before or as the command would have left it, and with
/// a journal all are so once the store is opened again.
class VEL_OSGDB_BRX_EXPORT PolygonPointCmd : public BaseCmd
{
public:
    /// INSIDE at first.
    void setType(Type type) { _type = type; }

    /// Vertices in pixels from the top left of the window, y down; closed implicitly, may cross itself.
    /// OpenGL's window coordinates run up: turn them by y = height - y.
    void setPolygon(std::vector<osg::Vec2d>& polygon) { _polygon = polygon; }
    void setPolygon(const std::vector<osg::Vec2d>& polygon) { _polygon = polygon; }

    /// View x projection x window of the camera, as OSG multiplies and as `osg::Viewport` gives the last:
    /// world coordinates to pixels, y up.
    void setVPW(osg::Matrixd& vpw) { _vpw = vpw; }
    void setVPW(const osg::Matrixd& vpw) { _vpw = vpw; }

    /// The clouds to act on. One that is deleted before the command runs is skipped.
    void setOctreeInfos(std::vector<osg::observer_ptr<OctreeInfo>>& octreeInfos)
    {
        _octreeInfos = octreeInfos;
    }
    void setOctreeInfos(const std::vector<osg::observer_ptr<OctreeInfo>>& octreeInfos)
    {
        _octreeInfos = octreeInfos;
    }

    /// Name of the viewer to redraw, as registered with `PCViewerManager`.
    void setUid(std::string uid) { _uid = std::move(uid); }

    /// Planes (a, b, c, d) in world coordinates. A point is only changed when a x + b y + c z + d >= 0 for
    /// all.
    void setClipPlane(std::vector<osg::Vec4d>& planes) { _clipPlanes = planes; }
    void setClipPlane(const std::vector<osg::Vec4d>& planes) { _clipPlanes = planes; }

    /// Size in pixels of the window that the polygon was drawn in.
    void setWidth(int width) { _width = width; }
    void setHeight(int height) { _height = height; }

    /// What the stores' journals say was done, JSON as scripts have it; see EditJournalling. Without it the
    /// operation's name alone.
    void setOperation(std::string operation) { _operation = std::move(operation); }

    void operator()(CullCmdManager* manager) override;

protected:
    enum class Edit
    {
        HIDE, ///< sets the culled bit of points that have no hidden bit
        SHOW  ///< clears the hidden bits of points that have any
    };

    PolygonPointCmd(int barrierCount, Edit edit, bool save);
    ~PolygonPointCmd() override;

    /// Takes the hidden bits of the recorded points away again, in loaded cells, and in the store as well
    /// when `inStore` is set; then empties the record, reports, and asks for a redraw.
    void undo(bool inStore);

private:
    void prepare() override;
    CmdResult editStores(CullCmdManager* manager);
    std::string operation() const;
    void editStore(OctreeInfo& octree, const ScreenMask& mask, CmdResult& result);

    Type _type = Type::INSIDE;
    std::vector<osg::Vec2d> _polygon;
    osg::Matrixd _vpw;
    std::vector<osg::observer_ptr<OctreeInfo>> _octreeInfos;
    std::unique_ptr<CloudPlaces> _places; ///< of them, when the command was pushed
    std::string _uid;
    std::string _operation;
    std::unique_ptr<ChangeRecord> _changes;
    std::vector<osg::Vec4d> _clipPlanes;
    int _width = 0;
    int _height = 0;
    const Edit _edit;
};

/// Hides the visible points under a polygon. Undo shows exactly those points again, in the store as well.
class VEL_OSGDB_BRX_EXPORT CullCmd : public PolygonPointCmd
{
public:
    explicit CullCmd(int barrierCount);

    /// With `save` false the manager does not keep the command: who pushed it undoes it with a
    /// `UndoCmd(int, BaseCmd*)`.
    CullCmd(int barrierCount, bool save);

    void reset(CullCmdManager* manager) override;

protected:
    ~CullCmd() override = default;
};

/// Brings the hidden points under a polygon back. What it brought back stays visible: its undo does not hide
/// the points again.
class VEL_OSGDB_BRX_EXPORT XorCullCmd : public PolygonPointCmd
{
public:
    explicit XorCullCmd(int barrierCount);
    XorCullCmd(int barrierCount, bool save); ///< as of `CullCmd`

    void reset(CullCmdManager* manager) override;

protected:
    ~XorCullCmd() override = default;
};

} // namespace VelOsgDBBrx

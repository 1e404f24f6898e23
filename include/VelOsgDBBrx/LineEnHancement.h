#pragma once

#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/Invoke.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec2f>
#include <osg/Vec3d>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct _cairo;
struct _cairo_surface;
class CloudPlaces;

namespace VelOsgDBBrx {

/// Finds the points under a thick polyline drawn on the screen, for instance along a road marking or a cable.
/// It changes no point and is not kept for undo. `outline` with `PointCloudHelper::setEnhancedLine` makes the
/// points along a line stand out in the picture.
///
/// The polyline, unlike the polygon of `CullCmd`, is in the window coordinates of `setVPW`: pixels with y up.
/// A line is only found from its second raster row and column on, so that level and upright lines lose most
/// of their width, and the raster is as large as the polyline's box; `LineSearchCmd` has neither limit.
class VEL_OSGDB_BRX_EXPORT LineEnHancement : public BaseCmd
{
public:
    /// A point that was found.
    struct LineEnHancementPoint
    {
        double x; ///< window position in pixels, y up
        double y;
        double depth;     ///< window depth, 0 at the near plane to 1 at the far plane
        uint64_t gpsTime; ///< the bits of the record's GPS time, a double; orders the points as flown
    };

    /// Values of `mode`; any other finds what ALL_POINTS finds.
    enum Mode
    {
        ALL_POINTS = 0,
        VISIBLE_POINTS = 1 ///< leaves hidden points out
    };

    /// `resolution`: pixels of the window per pixel of the raster that the line is drawn in, above 0; 1 is
    /// usual. `lineWidth` in pixels of the window. An empty polyline, or one whose raster would have no
    /// pixels or more than 32767 on a side, finds nothing: `CmdResult::maskMissing` says so.
    LineEnHancement(const std::vector<osg::Vec2d>& polyline, double resolution, double lineWidth, int mode,
                    int barrierCount);

    /// Runs the host's own search in the order of the commands; held, null finds nothing.
    LineEnHancement(Invoke* invoke, int barrierCount);

    /// The clouds to search. One that is deleted before the command runs is skipped.
    void setOctreeInfos(std::vector<osg::observer_ptr<OctreeInfo>>& octreeInfos)
    {
        _octreeInfos = octreeInfos;
    }
    void setOctreeInfos(const std::vector<osg::observer_ptr<OctreeInfo>>& octreeInfos)
    {
        _octreeInfos = octreeInfos;
    }

    /// Name of the viewer to redraw afterwards, as registered with `PCViewerManager`.
    void setUid(std::string uid) { _uid = std::move(uid); }

    /// View x projection x window of the camera, as for `CullCmd`.
    void setVPW(osg::Matrixd& vpw) { _vpw = vpw; }
    void setVPW(const osg::Matrixd& vpw) { _vpw = vpw; }

    void operator()(CullCmdManager* manager) override;

    /// Empties the result.
    void reset(CullCmdManager* manager) override;

    /// Does the search.
    virtual void calc(CullCmdManager* manager);

    /// The points found, in no order. Valid once `block` has returned or `isFinished` is true.
    std::vector<LineEnHancementPoint>& getAllLineEnHancementPoint() { return _points; }

    /// Whether the search has ended; for callers that do not wait. Any thread may call it.
    bool isFinished() const { return _finished; }

    /// The polygon of a line seen from above, for `PointCloudHelper::setEnhancedLine`: the left side of
    /// `polyline` forth and its right side back, `width` apart and mitred, all in world x and y. Empty for
    /// fewer than two different vertices or a width that is not above 0. Where a line crosses itself, its
    /// points do not stand out.
    static std::vector<osg::Vec2f> outline(const std::vector<osg::Vec2d>& polyline, double width);

protected:
    ~LineEnHancement() override;

private:
    void prepare() override;
    void drawRaster(const std::vector<osg::Vec2d>& polyline, double lineWidth);
    bool isOnLine(const osg::Vec3d& window) const;
    void searchRun(const uint8_t* records, int64_t count, const osg::Matrixd& recordToWindow,
                   std::vector<LineEnHancementPoint>& found) const;
    void searchStore(OctreeInfo& octree, CmdResult& result);

    _cairo_surface* _surface = nullptr; ///< owned
    _cairo* _context = nullptr;         ///< owned
    std::vector<osg::observer_ptr<OctreeInfo>> _octreeInfos;
    std::unique_ptr<CloudPlaces> _places; ///< of them, when the command was pushed
    std::string _uid;
    osg::Vec2d _lineMin;
    osg::Vec2d _lineMax;
    osg::Matrixd _vpw;
    const unsigned char* _bits = nullptr; ///< pixels of _surface; null: no raster
    int _stride = 0;                      ///< bytes a row
    double _resolution = 1;
    int32_t _mode = ALL_POINTS;
    int32_t _rasterWidth = 0;
    int32_t _rasterHeight = 0;
    std::atomic<bool> _finished{false};
    std::vector<LineEnHancementPoint> _points;
    osg::ref_ptr<Invoke> _invoke;
};

} // namespace VelOsgDBBrx

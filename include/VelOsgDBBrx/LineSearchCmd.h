#pragma once

#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/LineEnHancement.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec4d>
#include <osg/observer_ptr>

#include <bitset>
#include <memory>
#include <string>
#include <vector>

class CloudPlaces;
class LineStrip;

namespace VelOsgDBBrx {

/// Finds the visible points under a thick line in a window: not hidden, inside the clip planes, of a class
/// that is shown. Unlike `LineEnHancement`, whose raster loses the first row and column of the line's box, it
/// covers the whole width in every direction: a point is on the line when it lies in the window, in front of
/// the camera, and within half the width of the line; the two ends are cut off square, bends are round.
///
/// It changes no point and is not kept for undo. Its cost grows with the window and with the
/// points in cells near the line; vertices may lie far outside the window.
class VEL_OSGDB_BRX_EXPORT LineSearchCmd : public BaseCmd
{
public:
    explicit LineSearchCmd(int barrierCount);

    /// Vertices and width in pixels of the window, y up. Without two different vertices, with one that is not
    /// finite or further than 1e12 pixels away, or a width that is not above 0 there is no line: nothing is
    /// found, and `CmdResult::maskMissing` says so.
    void setLine(const std::vector<osg::Vec2d>& line, double width)
    {
        _line = line;
        _lineWidth = width;
    }

    /// View x projection x window of the camera, as for `CullCmd`.
    void setVPW(const osg::Matrixd& vpw) { _vpw = vpw; }

    /// Size in pixels of the window that the line was drawn in.
    void setWidth(int width) { _width = width; }
    void setHeight(int height) { _height = height; }

    /// Planes (a, b, c, d) in world coordinates. Only points with a x + b y + c z + d >= 0 for all are found.
    void setClipPlane(const std::vector<osg::Vec4d>& planes) { _clipPlanes = planes; }

    /// The classes that the display has switched on; all at first. A class that was edited and not saved
    /// counts as edited.
    void setShownClasses(const std::bitset<256>& classes) { _shownClasses = classes; }

    /// The clouds to search. One that is deleted before the command runs is skipped.
    void setOctreeInfos(const std::vector<osg::observer_ptr<OctreeInfo>>& octreeInfos)
    {
        _octreeInfos = octreeInfos;
    }

    /// Name of the viewer to redraw afterwards, as registered with `PCViewerManager`.
    void setUid(std::string uid) { _uid = std::move(uid); }

    void operator()(CullCmdManager* manager) override;

    /// Empties the result.
    void reset(CullCmdManager* manager) override;

    using Points = std::vector<LineEnHancement::LineEnHancementPoint>;

    /// The points found, in no order. Valid once `block` has returned or `getResult` says DONE.
    Points& points() { return _points; }

protected:
    ~LineSearchCmd() override;

private:
    void prepare() override;
    CmdResult search();
    void searchStore(OctreeInfo& octree, const LineStrip& strip, CmdResult& result);

    std::vector<osg::Vec2d> _line;
    double _lineWidth = 0;
    osg::Matrixd _vpw;
    int _width = 0;
    int _height = 0;
    std::vector<osg::Vec4d> _clipPlanes;
    std::bitset<256> _shownClasses = std::bitset<256>().set();
    std::vector<osg::observer_ptr<OctreeInfo>> _octreeInfos;
    std::unique_ptr<CloudPlaces> _places; ///< of them, when the command was pushed
    std::string _uid;
    Points _points;
};

} // namespace VelOsgDBBrx

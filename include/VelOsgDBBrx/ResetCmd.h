#pragma once

#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/observer_ptr>

#include <string>
#include <vector>

namespace VelOsgDBBrx {

/// Shows every point of the given clouds, whoever hid it. The undo stack stays as it is; the command cannot
/// be undone.
class VEL_OSGDB_BRX_EXPORT ResetCmd : public BaseCmd
{
public:
    explicit ResetCmd(int barrierCount);

    /// Name of the viewer to redraw, as registered with `PCViewerManager`.
    void setUid(std::string uid) { _uid = std::move(uid); }

    /// The clouds to show. One that is deleted before the command runs is skipped. One whose file cannot be
    /// written, or is no longer where its path leads, is left as it is.
    void setOctreeInfos(std::vector<osg::observer_ptr<OctreeInfo>>& octreeInfos)
    {
        _octreeInfos = octreeInfos;
    }

    void operator()(CullCmdManager* manager) override;

    /// Does nothing: which points were hidden is not kept.
    void reset(CullCmdManager* manager) override;

protected:
    ~ResetCmd() override = default;

private:
    std::string _uid;
    std::vector<osg::observer_ptr<OctreeInfo>> _octreeInfos;
};

} // namespace VelOsgDBBrx

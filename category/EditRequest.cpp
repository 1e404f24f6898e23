#include "category/EditRequest.h"

#include "cull/ScreenMask.h"

#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/PolygonMaskTool.h>

using VelBrx::Status;
using namespace VelOsgDBBrx;

namespace {

Status findCloud(const std::string& uid, const EditContext& context, osg::ref_ptr<OctreeInfo>& octree)
{
    const auto found = context.clouds.find(uid);
    if (found != context.clouds.end() && found->second.lock(octree)) return {};
    return Status::failure("no point cloud is registered as \"" + uid + "\"; register it before editing it");
}

Status findTarget(const Category& request, osg::Referenced* target, const EditContext& context,
                  osg::ref_ptr<OctreeInfo>& octree)
{
    if (!target) return findCloud(request.uid, context, octree);
    if (auto* cloud = dynamic_cast<IPointCloud*>(target))
        octree = cloud->getOctree();
    else
        octree = dynamic_cast<OctreeInfo*>(target);
    return octree ? Status() : Status::failure("the edit's target is not a point cloud; give one");
}

Status noMask()
{
    return Status::failure("no mask of the selection could be had; check its size and its source");
}

/// Carries out an edit on the screen of one point cloud.
Status editScreen(const Category& request, osg::Referenced* target, const ScreenSelection& selection,
                  const EditContext& context, std::vector<CloudEdit>& edits)
{
    osg::ref_ptr<OctreeInfo> octree;
    if (Status status = findTarget(request, target, context, octree); !status) return status;
    edits.push_back({request.uid, editClasses(*octree, selection, request.dryRun)});
    return {};
}

Status edit(const Category& request, const PolygonCmd& record, const EditContext& context,
            std::vector<CloudEdit>& edits)
{
    const Base& base = record.base;
    if (Status status = checkBase(base); !status) return status;
    const osg::ref_ptr<PixelBufferTool> tool = context.maskTool ? context.maskTool : new PolygonMaskTool;
    const ScreenMask mask(tool, base.polygon, base.width, base.height);
    if (!mask.isValid()) return noMask();
    return editScreen(request, record.target, {base, mask, base.polygon}, context, edits);
}

Status edit(const Category& request, const PixelBuffer& record, const EditContext& context,
            std::vector<CloudEdit>& edits)
{
    const Base& base = record.base;
    if (Status status = checkBase(base); !status) return status;
    const ScreenMask mask(record.mask, record.maskWidth, record.maskHeight);
    if (!mask.isValid()) return noMask();
    // The first column and row of a mask reach one of its pixels beyond the window.
    const double left = -static_cast<double>(base.width) / record.maskWidth;
    const double top = -static_cast<double>(base.height) / record.maskHeight;
    const double right = base.width;
    const double bottom = base.height;
    const std::vector<osg::Vec2d> window{{left, top}, {right, top}, {right, bottom}, {left, bottom}};
    return editScreen(request, record.target, {base, mask, window}, context, edits);
}

Status edit(const Category& request, const Package& record, const EditContext& context,
            std::vector<CloudEdit>& edits)
{
    const auto* prepared = dynamic_cast<const PolygonCmd*>(record.target.get());
    if (!prepared) return Status::failure("the package holds no polygon edit; give one as its target");
    PolygonCmd whole(*prepared);
    whole.base.polygon = record.polygon;
    whole.base.planesA.insert(whole.base.planesA.end(), record.planes.begin(), record.planes.end());
    return edit(request, whole, context, edits);
}

Status edit(const Category& request, const CategoryBuffer& record, const EditContext& context,
            std::vector<CloudEdit>& edits)
{
    struct CloudPoints
    {
        std::string uid;
        osg::ref_ptr<OctreeInfo> octree;
        std::vector<PointClass> points;
    };
    std::vector<CloudPoints> clouds; // all are found before the first is edited
    for (const auto& [uid, indices] : record.points) {
        const auto classes = record.classes.find(uid);
        if (classes == record.classes.end() || classes->second.size() != indices.size())
            return Status::failure("points and classes of \"" + uid +
                                   "\" differ in number; give a class a point");
        CloudPoints cloud{uid, nullptr, {}};
        if (Status status = findCloud(uid, context, cloud.octree); !status) return status;
        for (size_t i = 0; i < indices.size(); ++i)
            cloud.points.emplace_back(indices[i], classes->second[i]);
        clouds.push_back(std::move(cloud));
    }
    const bool hiddenToo = record.flag & Base::HIDDEN_POINTS;
    for (CloudPoints& cloud : clouds)
        edits.push_back(
            {cloud.uid, editClasses(*cloud.octree, std::move(cloud.points), hiddenToo, request.dryRun)});
    return {};
}

} // namespace

Status carryOut(const Category& request, const EditContext& context, std::vector<CloudEdit>& edits)
{
    const osg::Referenced* payload = request.payload;
    if (const auto* points = dynamic_cast<const CategoryBuffer*>(payload))
        return edit(request, *points, context, edits);
    if (request.uid.empty()) return Status::failure("the edit names no point cloud; give its uid");
    if (const auto* package = dynamic_cast<const Package*>(payload))
        return edit(request, *package, context, edits);
    if (const auto* pixels = dynamic_cast<const PixelBuffer*>(payload))
        return edit(request, *pixels, context, edits);
    if (const auto* polygon = dynamic_cast<const PolygonCmd*>(payload))
        return edit(request, *polygon, context, edits);
    return Status::failure("the edit carries no record that is known; give one");
}

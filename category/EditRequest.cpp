#include "category/EditRequest.h"

#include "edit/ScreenMask.h"

#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PolygonMaskTool.h>

#include <osg/NodeVisitor>
#include <osgViewer/View>

#include <algorithm>

using VelBrx::Status;
using namespace VelOsgDBBrx;

namespace {

Status findCloud(const std::string& uid, const EditContext& context, osg::ref_ptr<OctreeInfo>& octree)
{
    const auto found = context.clouds.find(uid);
    if (found != context.clouds.end() && found->second.lock(octree)) return {};
    return Status::failure("no point cloud is registered as \"" + uid + "\"; register it before editing it");
}

/// A cloud to edit, and the name under which its changes are reported.
struct Target
{
    std::string uid;
    osg::ref_ptr<OctreeInfo> octree;
};

/// The names of the registered clouds; of one with several names `preferred`, where that is among them.
std::map<const OctreeInfo*, std::string> uidsOf(const EditContext& context, const std::string& preferred)
{
    std::map<const OctreeInfo*, std::string> uids;
    for (const auto& [uid, observed] : context.clouds) {
        osg::ref_ptr<OctreeInfo> octree;
        if (!observed.lock(octree)) continue;
        const auto [known, isNew] = uids.emplace(octree.get(), uid);
        if (!isNew && uid == preferred) known->second = uid;
    }
    return uids;
}

/// The clouds found in the scene. One that is not registered goes by the path of its store.
std::vector<Target> targetsInScene(const std::string& uid, const EditContext& context)
{
    const std::map<const OctreeInfo*, std::string> uids = uidsOf(context, uid);
    std::vector<Target> targets;
    for (const osg::observer_ptr<OctreeInfo>& observed : context.inScene) {
        osg::ref_ptr<OctreeInfo> octree;
        if (!observed.lock(octree)) continue;
        const auto known = uids.find(octree.get());
        targets.push_back({known == uids.end() ? octree->pointPath : known->second, octree});
    }
    return targets;
}

/// The name of a cloud that is an edit's target: one that is not registered goes by the request's uid, unless
/// that is another cloud's.
std::string nameOfTarget(const OctreeInfo& octree, const std::string& uid, const EditContext& context)
{
    const std::map<const OctreeInfo*, std::string> uids = uidsOf(context, uid);
    const auto known = uids.find(&octree);
    if (known != uids.end()) return known->second;
    return context.clouds.count(uid) ? octree.pointPath : uid;
}

/// The octree of a target that is one cloud; else null.
OctreeInfo* octreeOf(osg::Referenced* target)
{
    auto* cloud = dynamic_cast<IPointCloud*>(target);
    return cloud ? cloud->getOctree() : dynamic_cast<OctreeInfo*>(target);
}

Status findTargets(const Category& request, osg::Referenced* target, const EditContext& context,
                   std::vector<Target>& targets)
{
    if (const osg::ref_ptr<OctreeInfo> octree = octreeOf(target))
        targets = {{nameOfTarget(*octree, request.uid, context), octree}};
    else
        targets = targetsInScene(request.uid, context);
    if (!targets.empty()) return {};
    if (target)
        return Status::failure("the edit's target is not a point cloud and has none under it; give one");
    targets = {{request.uid, nullptr}};
    return findCloud(request.uid, context, targets.front().octree);
}

/// Collects the point clouds of a scene, hidden ones too.
class CloudCollector : public osg::NodeVisitor
{
public:
    CloudCollector() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    void apply(osg::Group& group) override
    {
        auto* cloud = dynamic_cast<IPointCloud*>(&group);
        if (!cloud) return traverse(group);
        const osg::observer_ptr<OctreeInfo> octree = cloud->getOctree();
        if (std::find(clouds.begin(), clouds.end(), octree) == clouds.end()) clouds.push_back(octree);
    }

    std::vector<osg::observer_ptr<OctreeInfo>> clouds;
};

osg::Referenced* targetOf(const osg::Referenced* record)
{
    if (const auto* package = dynamic_cast<const Package*>(record)) return targetOf(package->target);
    if (const auto* pixels = dynamic_cast<const PixelBuffer*>(record)) return pixels->target;
    if (const auto* polygon = dynamic_cast<const PolygonCmd*>(record)) return polygon->target;
    return nullptr;
}

Status noMask()
{
    return Status::failure("no mask of the selection could be had; check its size and its source");
}

/// Refuses an edit of a store that another process edits, or whose journal cannot be written.
Status refuse(const Status& status, std::vector<CloudEdit>& edits)
{
    CategoryCounts& counts = edits.emplace_back().outcome.counts;
    (status.kind() == Status::Kind::IN_USE ? counts.storesBusy : counts.storesNotJournalled) = 1;
    return status;
}

ClassEditOptions optionsOf(const Category& request)
{
    ClassEditOptions options;
    options.dryRun = request.dryRun;
    options.description.operation = request.operation;
    options.description.time = VelBrx::editTimeNow();
    return options;
}

/// Keeps an edit of a cloud. Where it failed, those of the clouds before are taken back, as far as that can
/// be written down.
Status keep(CloudEdit edit, std::vector<CloudEdit>& edits)
{
    const Status status = edit.outcome.status;
    if (status) {
        edits.push_back(std::move(edit));
        return {};
    }
    VelBrx::EditDescription undo;
    undo.operation = R"({"op":"undo"})";
    const auto isTakenBack = [&](const CloudEdit& made) {
        return revert(made.outcome.undo, undo).status.ok();
    };
    edits.erase(std::remove_if(edits.begin(), edits.end(), isTakenBack), edits.end());
    if (edits.empty()) return refuse(status, edits);
    const std::string left = std::to_string(edits.size());
    return refuse(
        Status::failure(status.message() + "; " + left + " other stores have been edited; undo that",
                        status.kind()),
        edits);
}

/// Carries out an edit on the screen.
Status editScreen(const Category& request, osg::Referenced* target, const ScreenSelection& selection,
                  const EditContext& context, std::vector<CloudEdit>& edits)
{
    std::vector<Target> targets;
    if (Status status = findTargets(request, target, context, targets); !status) return status;
    for (const Target& cloud : targets)
        if (Status status = request.dryRun ? Status() : lockForClassEdit(*cloud.octree, selection); !status)
            return refuse(status, edits);
    const ClassEditOptions options = optionsOf(request);
    for (const Target& cloud : targets)
        if (Status status =
                keep({cloud.uid, request.uid, editClasses(*cloud.octree, selection, options)}, edits);
            !status)
            return status;
    return {};
}

osg::ref_ptr<PixelBufferTool> maskTool(const EditContext& context)
{
    return context.maskTool ? context.maskTool : new PolygonMaskTool;
}

/// The mask that the record brings, or else one of its polygon.
ScreenMask maskOf(const PixelBuffer& record, int width, int height, const EditContext& context)
{
    if (record.mask) return ScreenMask(osg::ref_ptr<const osg::Image>(record.mask), width, height);
    std::vector<osg::Vec2d> polygon = record.base.polygon;
    for (osg::Vec2d& vertex : polygon)
        vertex.set(vertex.x() * width / record.base.width, vertex.y() * height / record.base.height);
    return ScreenMask(maskTool(context), polygon, width, height);
}

Status edit(const Category& request, const PolygonCmd& record, const EditContext& context,
            std::vector<CloudEdit>& edits)
{
    const Base& base = record.base;
    if (Status status = checkBase(base); !status) return status;
    const ScreenMask mask(maskTool(context), base.polygon, base.width, base.height);
    if (!mask.isValid()) return noMask();
    return editScreen(request, record.target, {base, mask, base.polygon, *context.places}, context, edits);
}

Status edit(const Category& request, const PixelBuffer& record, const EditContext& context,
            std::vector<CloudEdit>& edits)
{
    const Base& base = record.base;
    if (Status status = checkBase(base); !status) return status;
    const bool hasSize = record.mask || record.maskWidth != 0 || record.maskHeight != 0;
    const ScreenMask mask = maskOf(record, hasSize ? record.maskWidth : base.width,
                                   hasSize ? record.maskHeight : base.height, context);
    if (!mask.isValid()) return noMask();
    // The first column and row of a mask reach one of its pixels beyond the window.
    const double left = -static_cast<double>(base.width) / mask.width();
    const double top = -static_cast<double>(base.height) / mask.height();
    const double right = base.width;
    const double bottom = base.height;
    const std::vector<osg::Vec2d> window{{left, top}, {right, top}, {right, bottom}, {left, bottom}};
    return editScreen(request, record.target, {base, mask, window, *context.places}, context, edits);
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
        if (Status status = request.dryRun ? Status() : lockForClassEdit(*cloud.octree); !status)
            return refuse(status, edits);
        for (size_t i = 0; i < indices.size(); ++i)
            cloud.points.emplace_back(indices[i], classes->second[i]);
        clouds.push_back(std::move(cloud));
    }
    const bool hiddenToo = record.flag & Base::HIDDEN_POINTS;
    const ClassEditOptions options = optionsOf(request);
    for (CloudPoints& cloud : clouds)
        if (Status status = keep({cloud.uid, cloud.uid,
                                  editClasses(*cloud.octree, std::move(cloud.points), hiddenToo, options)},
                                 edits);
            !status)
            return status;
    return {};
}

} // namespace

std::vector<osg::observer_ptr<OctreeInfo>> cloudsInScene(const Category& request, bool uidIsCloud)
{
    CloudCollector collector;
    osg::Referenced* const target = targetOf(request.payload);
    if (auto* group = dynamic_cast<osg::Group*>(target)) group->accept(collector);
    if (target || uidIsCloud) return collector.clouds;
    osgViewer::View* const view = PCViewerManager::getInstance()->getView(request.uid);
    if (view && view->getSceneData()) view->getSceneData()->accept(collector);
    return collector.clouds;
}

void notePlaces(const Category& request, const std::vector<osg::observer_ptr<OctreeInfo>>& inScene,
                OctreeInfo* registered, CloudPlaces& places)
{
    places.note(inScene);
    for (OctreeInfo* octree : {octreeOf(targetOf(request.payload)), registered})
        if (octree) places.note(*octree);
}

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

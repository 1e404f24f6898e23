#include "lod/WorldPlace.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/NodeVisitor>
#include <osg/Switch>
#include <osg/Transform>

#include <algorithm>
#include <functional>

namespace {

/// Finds the paths from the scene's roots to the node that it is started at, whatever the node masks.
class PathFinder : public osg::NodeVisitor
{
public:
    PathFinder() : osg::NodeVisitor(TRAVERSE_PARENTS) { setNodeMaskOverride(~0u); }

    void apply(osg::Node& node) override
    {
        if (node.getNumParents() == 0)
            paths.push_back(getNodePath());
        else
            traverse(node);
    }

    osg::NodePathList paths;
};

bool isSwitchedOn(const osg::NodePath& path)
{
    for (size_t i = 0; i < path.size(); ++i) {
        const osg::Switch* parent = i > 0 ? path[i - 1]->asSwitch() : nullptr;
        if (path[i]->getNodeMask() == 0 || (parent && !parent->getChildValue(path[i]))) return false;
    }
    return true;
}

/// Keeps the paths for which `wanted` holds, unless it holds for none.
void prefer(osg::NodePathList& paths, const std::function<bool(const osg::NodePath&)>& wanted)
{
    const auto others = std::stable_partition(paths.begin(), paths.end(), wanted);
    if (others != paths.begin()) paths.erase(others, paths.end());
}

/// Keeps the paths through a node, unless there is none.
void prefer(osg::NodePathList& paths, const osg::Node* node)
{
    prefer(paths, [node](const osg::NodePath& path) {
        return std::find(path.begin(), path.end(), node) != path.end();
    });
}

std::optional<osg::Matrixd> placeAlong(const osg::NodePath& path, const osg::Camera* camera,
                                       osg::NodeVisitor& visitor)
{
    osg::Matrix place;
    bool isBeforeEye = false;
    for (osg::Node* node : path) {
        const osg::Transform* transform = node->asTransform();
        if (!transform) continue;
        const bool isAbsolute = transform->getReferenceFrame() != osg::Transform::RELATIVE_RF;
        const osg::Camera* nodeAsCamera = node->asCamera();
        if (nodeAsCamera && (isAbsolute || node == path.front())) {
            camera = nodeAsCamera;
            place.makeIdentity();
            isBeforeEye = false;
            continue;
        }
        transform->computeLocalToWorldMatrix(place, &visitor);
        isBeforeEye = isBeforeEye || isAbsolute;
    }
    if (!isBeforeEye) return place;
    if (!camera) return std::nullopt;
    return place * osg::Matrixd::inverse(camera->getViewMatrix());
}

/// Whether anything but its own nodes is above a cloud.
bool isInScene(const osg::Node& cloud)
{
    const osg::Node* top = &cloud;
    while (top->getNumParents() > 0)
        top = top->getParent(0);
    return top != &cloud && !dynamic_cast<const VelOsgDBBrx::IPointCloud*>(top);
}

} // namespace

std::optional<osg::Matrixd> placeInWorld(osg::Node& node, const osg::Node* above, const osg::Camera* camera)
{
    PathFinder finder;
    node.accept(finder);
    prefer(finder.paths, above);
    prefer(finder.paths, camera);
    prefer(finder.paths, isSwitchedOn);
    return placeAlong(finder.paths.front(), camera, finder);
}

osg::Matrixd placeInWorld(OctreeInfo& octree)
{
    osg::ref_ptr<osg::Group> cloud;
    if (octree.root && octree.root->group.lock(cloud) && isInScene(*cloud))
        if (const std::optional<osg::Matrixd> place = placeInWorld(*cloud, nullptr, nullptr)) return *place;
    const VelThreads::Lock lock(octree.mutex);
    return octree.transform;
}

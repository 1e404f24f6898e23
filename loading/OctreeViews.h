#pragma once

#include <VelOsgUtils/CameraState.h>
#include <VelOsgUtils/FrameClock.h>
#include <VelOsgUtils/SpinLock.h>
#include <VelThreads/Mutex.h>

#include <osg/Camera>
#include <osg/Matrixd>
#include <osg/Node>
#include <osg/Referenced>
#include <osg/ref_ptr>

#include <atomic>
#include <cstdint>
#include <vector>

/// The cameras that draw an octree and the places where they do, as its cull traversals note them. One that
/// the viewer's frames leave out, or that was culled without meeting the octree, drops out with the second
/// frame. Under several parents an octree is at several places.
///
/// Threads: any; cull threads of several cameras note at once.
class OctreeViews : public osg::Referenced
{
public:
    /// A camera that draws the octree at a place. Compare `camera`, never follow it.
    struct View
    {
        const osg::Camera* camera;
        VelOsgUtils::CameraState state;
        osg::Matrixd model; ///< local to world
    };

    /// The cull traversal of `camera` met the octree, which is at `model` in the world, on a path of
    /// nodes. True when it was moved there since this camera's last time and the camera was not.
    bool note(const osg::Camera& camera, const osg::NodePath& path, const VelOsgUtils::CameraState& state,
              const osg::Matrixd& model, VelOsgUtils::FrameClock& clock);

    /// Adds the cameras that draw the octree to `views`, for each place once; forgets the others.
    void collect(std::vector<View>& views);

    /// Whether a camera whose frames this clock counts draws the octree.
    bool isDrawn(const VelOsgUtils::FrameClock& clock);

    /// No camera was ever noted: the octree is in no scene, or its viewer has no services yet.
    bool isUnknown() const { return !_noted; }

    /// Another number whenever a camera of any octree came in or changed.
    static uint64_t revision();

protected:
    ~OctreeViews() override = default;

private:
    struct Note
    {
        View view;
        osg::NodePath path; ///< only compared: the nodes may be gone
        osg::ref_ptr<VelOsgUtils::FrameClock> clock;
        uint64_t frame;
    };

    VelOsgUtils::SpinLock _lock;
    std::vector<Note> _notes VEL_GUARDED_BY(_lock); ///< one a camera and path
    std::atomic<bool> _noted{false};
};

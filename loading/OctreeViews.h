#pragma once

#include <VelOsgUtils/CameraState.h>
#include <VelOsgUtils/FrameClock.h>
#include <VelOsgUtils/SpinLock.h>

#include <osg/Camera>
#include <osg/Matrixd>
#include <osg/Referenced>
#include <osg/ref_ptr>

#include <atomic>
#include <cstdint>
#include <vector>

/// The cameras that draw an octree, as its cull traversals note them. A camera that the viewer's frames leave
/// out, or that was culled without meeting the octree, drops out with the second frame.
///
/// Threads: any; cull threads of several cameras note at once.
class OctreeViews : public osg::Referenced
{
public:
    /// A camera that draws the octree. Compare `camera`, never follow it.
    struct View
    {
        const osg::Camera* camera;
        VelOsgUtils::CameraState state;
    };

    /// The cull traversal of `camera` met the octree, which stands at `model` in the world. True when the
    /// octree was moved since this camera's last time and the camera was not.
    bool note(const osg::Camera& camera, const VelOsgUtils::CameraState& state, const osg::Matrixd& model,
              VelOsgUtils::FrameClock& clock);

    /// Adds the cameras that draw the octree to `views`; forgets the others.
    void collect(std::vector<View>& views);

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
        osg::Matrixd model;
        osg::ref_ptr<VelOsgUtils::FrameClock> clock;
        uint64_t frame;
    };

    VelOsgUtils::SpinLock _lock;
    std::vector<Note> _notes; ///< guarded by _lock; one a camera
    std::atomic<bool> _noted{false};
};

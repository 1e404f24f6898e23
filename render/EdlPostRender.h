#pragma once

#include "render/EyeDomeTarget.h"

#include <VelThreads/Mutex.h>

#include <osg/Group>
#include <osg/StateSet>
#include <osg/ref_ptr>

/// The second pass of eye-dome lighting: draws a cloud again, shaded by what the first pass drew.
///
/// Its state set holds the program, the settings "radius" and "edlStrength", and what the camera that culled
/// last is shaded by: textures, their size as "Sx" and "Sy", and its kind of projection. Nothing is drawn
/// with that state set: each camera draws with a copy of the settings and with its own target. So cull
/// threads may bring it up to date while draw threads run. Hosts read and change it between frames.
class EdlPostRender : public osg::Group
{
public:
    EdlPostRender(EyeDomeTargets* targets, osg::Node* content);

    /// Brings the state set up to date for a camera that culls with `target`. Returns what to draw with,
    /// above the target's own state. For all threads.
    osg::ref_ptr<const osg::StateSet> show(const EyeDomeTarget& target, bool perspective);

    void accept(osg::NodeVisitor& visitor) override;

    /// Only culling reaches the content from here; other visitors find it once, in the first pass.
    void traverse(osg::NodeVisitor& visitor) override;

    void resizeGLObjectBuffers(unsigned maxSize) override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "EdlPostRender"; }

protected:
    ~EdlPostRender() override = default;

private:
    mutable VelThreads::Mutex _mutex; ///< between cull threads; guards what culling changes in the state set
    osg::ref_ptr<const osg::StateSet> _drawn VEL_GUARDED_BY(_mutex); ///< the settings, without textures
};

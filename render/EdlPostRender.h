#pragma once

#include "render/EyeDomeTarget.h"

#include <osg/Group>

/// The second pass of eye-dome lighting: draws a cloud again, shaded by what the first pass drew. Its state
/// set holds the program, the settings "radius" and "edlStrength", and what the camera that culled first in
/// the last frame is shaded by: textures, their size as "Sx" and "Sy", and its kind of projection. Each
/// camera draws with its own.
class EdlPostRender : public osg::Group
{
public:
    EdlPostRender(EyeDomeTargets* targets, osg::Node* content);

    /// Only culling reaches the content from here; other visitors find it once, in the first pass.
    void traverse(osg::NodeVisitor& visitor) override;

    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "EdlPostRender"; }

protected:
    ~EdlPostRender() override = default;
};

#pragma once

#include <osg/Drawable>

/// Draw callback of every cell geometry: gives the current program the cell's local-to-world matrix in double
/// precision as "modelMatrix", so that shaders rebuild global coordinates from float vertices.
///
/// Stateless: one object may serve every geometry, on any draw thread.
class ModelMatrix : public osg::Drawable::DrawCallback
{
public:
    void drawImplementation(osg::RenderInfo& renderInfo, const osg::Drawable* drawable) const override;

protected:
    ~ModelMatrix() override = default;
};

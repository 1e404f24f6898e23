#include "loading/CellGeometry.h"

#include <osg/RenderInfo>
#include <osg/State>
#include <osg/VertexArrayState>

void CellGeometry::editCategories(const CategoryEdit& edit)
{
    const std::lock_guard<std::mutex> guard(_mutex);
    auto* array = dynamic_cast<osg::IntArray*>(getVertexAttribArray(kCategoryLocation));
    if (!array) return;
    edit(*array);
    array->dirty();
    ++_edits;
}

void CellGeometry::drawImplementation(osg::RenderInfo& renderInfo) const
{
    const std::lock_guard<std::mutex> guard(_mutex);
    unsigned int& uploaded = _uploadedEdits[renderInfo.getContextID()];
    if (uploaded != _edits) {
        // A vertex array object remembers the arrays it was given and would not look at their content again.
        renderInfo.getState()->getCurrentVertexArrayState()->setRequiresSetArrays(true);
        uploaded = _edits;
    }
    osg::Geometry::drawImplementation(renderInfo);
}

void CellGeometry::compileGLObjects(osg::RenderInfo& renderInfo) const
{
    const std::lock_guard<std::mutex> guard(_mutex);
    osg::Geometry::compileGLObjects(renderInfo);
}

#pragma once

#include <osg/Array>
#include <osg/Geometry>
#include <osg/buffered_value>

#include <functional>
#include <mutex>

/// The geometry of one cell. It is shared by the graphics contexts that show the cell, and its location-12
/// attribute (class and hidden bits) is edited in place by worker threads while they draw it. Drawing,
/// compiling and editing exclude one another, cell by cell, in every threading model.
class CellGeometry : public osg::Geometry
{
public:
    static constexpr unsigned int kCategoryLocation = 12;
    using CategoryEdit = std::function<void(osg::IntArray&)>;

    /// Calls `edit` with the location-12 array, if there is one, and has every context upload it again before
    /// the next time it draws the cell. Any thread may call it; `edit` must not draw.
    void editCategories(const CategoryEdit& edit);

    void drawImplementation(osg::RenderInfo& renderInfo) const override;
    void compileGLObjects(osg::RenderInfo& renderInfo) const override;

protected:
    ~CellGeometry() override = default;

private:
    mutable std::mutex _mutex; ///< guards the array's content and the members below
    unsigned int _edits = 0;   ///< number of edits so far
    mutable osg::buffered_value<unsigned int> _uploadedEdits; ///< by context: `_edits` when last drawn
};

#pragma once

#include <osg/Array>
#include <osg/Geometry>

#include <functional>
#include <mutex>

/// The geometry of one cell. It is shared by the graphics contexts that show the cell, and its location-12
/// attribute (class and hidden bits) is edited in place by worker threads while they draw it. Drawing,
/// compiling, releasing and editing exclude one another, cell by cell, in every threading model.
///
/// Cells come and go and are edited in place, while OpenSceneGraph remembers which arrays it bound last; this
/// class sees to it that every draw reads the arrays as they are.
class CellGeometry : public osg::Geometry
{
public:
    static constexpr unsigned int kCategoryLocation = 12;
    using CategoryEdit = std::function<bool(osg::IntArray&)>;

    /// Gives every array a modified count that no other array has. Call it when all arrays are attached.
    ///
    /// OpenSceneGraph takes an array for the one it bound last when address and modified count are the same;
    /// a new array at the address of a freed one would then be drawn from the freed one's buffer.
    void stampArrays() const;

    /// Calls `edit` with the location-12 array, if there is one. When it returns that it has changed the
    /// array, every context uploads it again before the next time it draws the cell. Any thread may call it;
    /// `edit` must not draw.
    void editCategories(const CategoryEdit& edit);

    /// The bounds of the points, known from reading them. Set before the geometry is shown.
    void setPointBounds(const osg::BoundingBox& bounds) { _pointBounds = bounds; }
    osg::BoundingBox computeBoundingBox() const override { return _pointBounds; }

    void drawImplementation(osg::RenderInfo& renderInfo) const override;
    void compileGLObjects(osg::RenderInfo& renderInfo) const override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

protected:
    ~CellGeometry() override = default;

private:
    osg::BoundingBox _pointBounds;
    mutable std::mutex _mutex; ///< guards the arrays' content and modified counts, and their buffers
};

#pragma once

#include <VelThreads/Mutex.h>

#include <osg/Array>
#include <osg/Geometry>

#include <cstdint>
#include <functional>
#include <vector>

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
    static constexpr unsigned int kMarkLocation = 7;
    using CategoryEdit = std::function<bool(osg::IntArray&)>;

    /// Gives every array a modified count that no other array has. Call it when all arrays are attached.
    ///
    /// OpenSceneGraph takes an array for the one it bound last when address and modified count are the same;
    /// a new array at the address of a freed one would then be drawn from the freed one's buffer.
    void stampArrays() const;

    /// For a cell of which a part could not be mapped: element i of the arrays is the point at place
    /// `places[i]` of the cell's `cellPoints` points. Set before the geometry is shown.
    void setPlaces(std::vector<uint32_t> places, uint32_t cellPoints);

    /// Number of points that the cell declares; the arrays hold fewer where a part could not be mapped.
    uint32_t cellPoints() const;

    /// Calls `edit` with the location-12 array, if there is one; element i is of the cell's point i.
    /// Where a part of the cell could not be mapped it is a whole array made for the purpose, in which the
    /// missing points are 0 and what is done to them is lost. When it returns that it has changed the
    /// array, every context uploads it again before the next time it draws the cell. Any thread may call it;
    /// `edit` must not draw.
    void editCategories(const CategoryEdit& edit);

    using MarkEdit = std::function<bool(uint32_t place, size_t count, const int* classes, int* marked)>;

    /// Calls `put` with elements of the location-12 and the location-7 array, if there are any: of `count`
    /// points, the first the cell's point `place`. When it returns that it has changed any the array is
    /// uploaded again as by `editCategories`. Any thread may call it.
    void editMarks(const MarkEdit& put);

    /// The bounds of the points, known from reading them. Set before the geometry is shown.
    void setPointBounds(const osg::BoundingBox& bounds) { _pointBounds = bounds; }
    osg::BoundingBox computeBoundingBox() const override { return _pointBounds; }

    void drawImplementation(osg::RenderInfo& renderInfo) const override;
    void compileGLObjects(osg::RenderInfo& renderInfo) const override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

protected:
    ~CellGeometry() override = default;

private:
    bool editWholeCell(osg::IntArray& held, const CategoryEdit& edit) const;

    osg::BoundingBox _pointBounds;
    std::vector<uint32_t> _places;    ///< empty: the arrays hold every point of the cell
    uint32_t _cellPoints = 0;         ///< with `_places`
    mutable VelThreads::Mutex _mutex; ///< guards the arrays' content and modified counts, and their buffers
};

#pragma once

#include "edit/EditControl.h"
#include "edit/PointTest.h"
#include "edit/RecordBlock.h"

#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PointSelection.h>

#include <osg/Matrixd>
#include <osg/Vec2d>

#include <atomic>
#include <cstdint>
#include <vector>

/// How far the nearest points lie that a polygon of the screen covers: a depth for each pixel around the
/// polygon, or for a field of pixels where the window is very large. Filled by one thread with `add`, then
/// `close`; constant from then on, and any number of threads may use it.
class FrontSurface
{
public:
    /// The place has a front tolerance.
    explicit FrontSurface(const VelOsgDBBrx::ScreenPlace& place);

    /// Brings in the points of a store that a test reaches, on half of the processors. Each cell is a cell
    /// done. Returns the number of cells that could not be read whole. The caller holds the store's edit
    /// lock.
    uint64_t add(const OctreeInfo& octree, const osg::Matrixd& localToWorld, const PointTest& test,
                 EditControl& control);

    /// Gives each pixel the nearest depth of its neighbourhood.
    void close();

    /// Points of a store in the grid.
    class Projection
    {
    public:
        Projection(const FrontSurface& surface, const osg::Vec3d& scale, const osg::Matrixd& localToWorld);

        /// Writes the field and the depth of each record; what lies beyond the grid has the first field.
        void project(const RecordBlock& block, int32_t* fields, double* depths) const;

    private:
        RecordBlock::Linear _column; ///< times w
        RecordBlock::Linear _row;    ///< from the top, times w
        RecordBlock::Linear _w;
        RecordBlock::Linear _depth;
        int _columns;
        int _rows;
    };

    /// Clears the bytes of the points behind the surface.
    void keep(const Projection& projection, const RecordBlock& block, uint8_t* accepted) const;

private:
    void note(int32_t field, double depth);

    const osg::Matrixd _vpw;
    const int _windowHeight;
    const double _tolerance;
    const double _radius;
    osg::Vec2d _corner; ///< of the grid, pixels from the top left
    double _field = 1;  ///< pixels along the edge of a field
    int _columns = 1;
    int _rows = 1;
    std::vector<std::atomic<double>> _nearest; ///< row by row; infinite where there is no point
};

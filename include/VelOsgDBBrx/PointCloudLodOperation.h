#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/OperationThread>
#include <osgUtil/IncrementalCompileOperation>

#include <atomic>
#include <cstdint>
#include <memory>

class LodPass;

namespace VelOsgUtils {
class DecrementalCompileOperation;
}

namespace VelOsgDBBrx {

class IPointLoadManager;

/// A level-of-detail pass: decides which cells of the octrees in a `FrameStamp` must be in memory, has the
/// missing ones read and compiled, and the others taken out of the scene.
///
/// Threads: a load manager's thread runs it, one pass at a time; `setAbort` and `isAborted` from any thread.
/// Copies share the compile operations and nothing else.
class VEL_OSGDB_BRX_EXPORT PointCloudLodOperation : public virtual osg::Operation
{
public:
    /// While raised, the pass that runs reads no further cells. The pass clears it at its end.
    void setAbort(bool abort) { _abort = abort; }
    bool isAborted() const { return _abort; }

    /// Points that the cameras of the last pass want, or that its region has, whether the budget admits them
    /// or not. Known before the pass reads cells. Any thread.
    uint64_t wantedPoints() const { return _wantedPoints; }

protected:
    PointCloudLodOperation(osgUtil::IncrementalCompileOperation* incremental,
                           VelOsgUtils::DecrementalCompileOperation* decremental);
    PointCloudLodOperation(const PointCloudLodOperation& other);
    PointCloudLodOperation& operator=(const PointCloudLodOperation& other);
    ~PointCloudLodOperation() override;

    std::unique_ptr<LodPass> _pass;
    std::atomic<bool> _abort{false};
    std::atomic<uint64_t> _wantedPoints{0};
};

/// Camera-driven: a cell is wanted when it is inside the view frustum, its resolution length covers at least
/// half a pixel, and it lies inside the filter-plane region if one is set. Whole levels are admitted in
/// ascending order while the point budget lasts; a level that does not fit is left out, and deeper ones that
/// fit still follow.
///
/// The size test is scale = viewport height / |tan(fovy / 3.1415926) * depth| with the field of view in
/// degrees, and drops a cell when 2 * scale * resolution length < 1. Stores are calibrated for 30 degrees. At
/// other fields of view the formula is far off, 35 and 45 degrees above all, where nearly nothing is wanted;
/// and orthographic cameras get points four pixels apart. It is what a context has at first; a host whose
/// cameras are not all perspectives of 30 degrees wants `PixelSpacingLod`.
class VEL_OSGDB_BRX_EXPORT DynPointCloudLod : public PointCloudLodOperation
{
public:
    DynPointCloudLod(osgUtil::IncrementalCompileOperation* incremental,
                     VelOsgUtils::DecrementalCompileOperation* decremental);

    DynPointCloudLod(const DynPointCloudLod&) = default;
    DynPointCloudLod& operator=(const DynPointCloudLod&) = default;

    /// One pass; anything but a `FrameStamp` is ignored.
    void operator()(osg::Object* frameStamp) override;

protected:
    ~DynPointCloudLod() override;
};

/// Camera-driven, for every projection: perspectives of any field of view, symmetric or not, and parallel
/// ones. As `DynPointCloudLod`, but that a cell is wanted while its points lie `pixels` or more apart in the
/// picture; so the finest points shown are one to two times that apart. What a length covers is worked out
/// from the camera's matrices and the cloud's place at the depth of the cell, and the store's calibration is
/// undone. At 30 degrees and one pixel it wants what `DynPointCloudLod` wants, except for cells around the
/// eye.
///
/// One line selects it for a context:
///
///     manager->setLodOperation(new PixelSpacingLod(*manager));
class VEL_OSGDB_BRX_EXPORT PixelSpacingLod : public PointCloudLodOperation
{
public:
    /// `pixels`: above 0; 0 and less ask for all that is in view.
    PixelSpacingLod(osgUtil::IncrementalCompileOperation* incremental,
                    VelOsgUtils::DecrementalCompileOperation* decremental, double pixels = 1.0);

    /// On the compile operations of `manager`, for its `setLodOperation`.
    explicit PixelSpacingLod(IPointLoadManager& manager, double pixels = 1.0);

    PixelSpacingLod(const PixelSpacingLod&) = default;
    PixelSpacingLod& operator=(const PixelSpacingLod&) = default;

    /// One pass; anything but a `FrameStamp` is ignored.
    void operator()(osg::Object* frameStamp) override;

protected:
    ~PixelSpacingLod() override;

private:
    double _pixels;
};

/// Camera-independent: the cells inside the filter-plane region are wanted, all of them, and no others.
class VEL_OSGDB_BRX_EXPORT FixPointCloudLod : public PointCloudLodOperation
{
public:
    FixPointCloudLod(osgUtil::IncrementalCompileOperation* incremental,
                     VelOsgUtils::DecrementalCompileOperation* decremental);

    FixPointCloudLod(const FixPointCloudLod&) = default;
    FixPointCloudLod& operator=(const FixPointCloudLod&) = default;

    /// One pass; anything but a `FrameStamp` is ignored.
    void operator()(osg::Object* frameStamp) override;

protected:
    ~FixPointCloudLod() override;
};

} // namespace VelOsgDBBrx

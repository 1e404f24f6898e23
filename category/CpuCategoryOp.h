#pragma once

#include "category/ClassEdit.h"
#include "category/GeometryClasses.h"

#include <VelOsgDBBrx/CategoryCmdInner.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <osg/OperationThread>
#include <osg/ref_ptr>

#include <vector>

/// Carries out the commands of a context's category manager on the point clouds registered with it, by the
/// same rules and with the same reach as `CategoryCalcTool` does: a point is edited when it is under the
/// polygon, not hidden, inside the manager's clip planes, and of a class that the command's table lets
/// change; cells that are not loaded are edited too, and `CategoryCalcTool::writeToStores` writes these edits
/// as well.
///
/// A member is an octree or a point cloud, all of whose points are meant, a cell's leaf or its geometry, with
/// the points of that cell, or a geometry of the host's own (see `GeometryClasses.h`), whose edits live in
/// its attribute alone.
///
/// A manager's undo takes back its own edits. It should not be mixed with the tool's on one store: each
/// restores the classes that it found.
///
/// Only the manager's thread calls it.
class CpuCategoryOp : public osg::Operation
{
public:
    explicit CpuCategoryOp(VelOsgDBBrx::VelIncrementalCompileOperation* compileOperation);

    /// `object` is a `VelOsgDBBrx::CategoryData`; anything else is ignored.
    void operator()(osg::Object* object) override;

protected:
    ~CpuCategoryOp() override = default;

private:
    /// What an edit changed.
    struct Step
    {
        std::vector<ClassUndo> stores;
        std::vector<GeometryChange> geometries;
    };

    void edit(const VelOsgDBBrx::CategoryCmdInner& command, const VelOsgDBBrx::CategoryData& data);
    void revertNewest(std::vector<Step>& from, std::vector<Step>& to);
    void show(const ClassEditOutcome& outcome);

    const osg::ref_ptr<VelOsgDBBrx::VelIncrementalCompileOperation> _compileOperation;
    std::vector<Step> _undo; ///< newest last
    std::vector<Step> _redo; ///< last undone last
};

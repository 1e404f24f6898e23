#include "category/CpuCategoryOp.h"

#include "category/CompileFirst.h"
#include "cull/ScreenMask.h"

#include <VelOsgDBBrx/PolygonMaskTool.h>

#include <iterator>

using namespace VelOsgDBBrx;

namespace {

Base toBase(const CategoryCmdInner& command, const std::vector<osg::Vec4d>& clipPlanes)
{
    Base base;
    base.planesA = clipPlanes;
    base.classTable = command.classTable;
    base.toClass = command.toClass;
    base.vpw = command.vpw;
    base.width = command.width;
    base.height = command.height;
    return base;
}

} // namespace

CpuCategoryOp::CpuCategoryOp(VelIncrementalCompileOperation* compileOperation)
    : osg::Operation("CpuCategoryOp", true), _compileOperation(compileOperation)
{
}

void CpuCategoryOp::operator()(osg::Object* object)
{
    const auto* data = dynamic_cast<const CategoryData*>(object);
    if (!data) return;
    for (const osg::ref_ptr<CategoryCmdInner>& command : data->commands)
        switch (command->kind) {
        case CategoryCmdInner::EDIT:
            edit(*command, *data);
            break;
        case CategoryCmdInner::UNDO:
            revertNewest(_undo, _redo);
            break;
        case CategoryCmdInner::REDO:
            revertNewest(_redo, _undo);
            break;
        case CategoryCmdInner::RESET:
            while (!_undo.empty())
                revertNewest(_undo, _redo);
            break;
        default:
            break;
        }
}

void CpuCategoryOp::edit(const CategoryCmdInner& command, const CategoryData& data)
{
    const Base base = toBase(command, data.clipPlanes);
    const osg::ref_ptr<PolygonMaskTool> maskTool = new PolygonMaskTool;
    const ScreenMask mask(maskTool, command.polygon, command.width, command.height);
    if (!checkBase(base) || !mask.isValid()) return;
    Step step;
    for (const osg::ref_ptr<osg::Referenced>& member : data.members) {
        auto* octree = dynamic_cast<OctreeInfo*>(member.get());
        if (!octree) continue;
        EditOutcome outcome = editClasses(*octree, {base, mask, command.polygon}, false);
        show(outcome);
        std::move(outcome.changes.begin(), outcome.changes.end(), std::back_inserter(step));
    }
    if (step.empty()) return;
    _undo.push_back(std::move(step));
    _redo.clear();
}

void CpuCategoryOp::revertNewest(std::vector<Step>& from, std::vector<Step>& to)
{
    if (from.empty()) return;
    EditOutcome outcome = revertChanges(std::move(from.back()));
    from.pop_back();
    show(outcome);
    to.push_back(std::move(outcome.changes));
}

void CpuCategoryOp::show(const EditOutcome& outcome)
{
    if (_compileOperation) compileFirst(*_compileOperation, outcome.cells);
}

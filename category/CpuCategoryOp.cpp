#include "category/CpuCategoryOp.h"

#include "category/CompileFirst.h"
#include "edit/CloudPlaces.h"
#include "edit/ScreenMask.h"
#include "loading/CellLeaf.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/PolygonMaskTool.h>

#include <algorithm>
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

/// What a member stands for: a store, one cell of it, or a geometry of the host's own.
struct Meant
{
    osg::ref_ptr<OctreeInfo> octree;
    osg::ref_ptr<CellData> cell;
    osg::Geometry* geometry = nullptr;
};

Meant cellOf(CellLeaf& leaf)
{
    Meant meant;
    const VelThreads::Lock lock(leaf.lock);
    if (leaf.cell.lock(meant.cell)) meant.cell->octree.lock(meant.octree);
    return meant;
}

Meant whatIsMeant(osg::Referenced* member)
{
    if (auto* octree = dynamic_cast<OctreeInfo*>(member)) return {octree, nullptr, nullptr};
    if (auto* cloud = dynamic_cast<IPointCloud*>(member)) return {cloud->getOctree(), nullptr, nullptr};
    if (auto* leaf = dynamic_cast<CellLeaf*>(member)) return cellOf(*leaf);
    auto* geometry = dynamic_cast<osg::Geometry*>(member);
    auto* leaf =
        geometry && geometry->getNumParents() ? dynamic_cast<CellLeaf*>(geometry->getParent(0)) : nullptr;
    return leaf ? cellOf(*leaf) : Meant{nullptr, nullptr, geometry};
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
        const Meant meant = whatIsMeant(member);
        if (meant.geometry) step.geometries.push_back(editClasses(*meant.geometry, base, mask));
        if (!meant.octree || !lockForClassEdit(*meant.octree)) continue;
        ClassEditOptions options;
        options.only = meant.cell;
        ClassEditOutcome outcome =
            editClasses(*meant.octree, {base, mask, command.polygon, CloudPlaces()}, options);
        show(outcome);
        if (!outcome.undo.isEmpty()) step.stores.push_back(std::move(outcome.undo));
    }
    const auto isEmpty = [](const GeometryChange& change) { return change.points.empty(); };
    step.geometries.erase(std::remove_if(step.geometries.begin(), step.geometries.end(), isEmpty),
                          step.geometries.end());
    if (step.stores.empty() && step.geometries.empty()) return;
    _undo.push_back(std::move(step));
    _redo.clear();
}

void CpuCategoryOp::revertNewest(std::vector<Step>& from, std::vector<Step>& to)
{
    if (from.empty()) return;
    Step step = std::move(from.back());
    from.pop_back();
    VelBrx::EditDescription description;
    description.operation = &from == &_undo ? R"({"op":"undo"})" : R"({"op":"redo"})";
    for (ClassUndo& store : step.stores) {
        ClassEditOutcome outcome = revert(store, description);
        show(outcome);
        if (outcome.status) store = std::move(outcome.undo);
    }
    std::transform(step.geometries.begin(), step.geometries.end(), step.geometries.begin(), revertChange);
    to.push_back(std::move(step));
}

void CpuCategoryOp::show(const ClassEditOutcome& outcome)
{
    if (_compileOperation) compileFirst(*_compileOperation, outcome.cells);
}

#include "category/ClassUndoStack.h"

#include <algorithm>

namespace {

/// What the journals say of a step that takes edits back.
VelBrx::EditDescription describe(const char* operation)
{
    VelBrx::EditDescription description;
    description.operation = operation;
    description.time = VelBrx::editTimeNow();
    return description;
}

} // namespace

void ClassUndoStack::note(const std::string& uid, const std::vector<EditedCell>& cells)
{
    const VelThreads::Lock lock(_mutex);
    ModifiedCloud& cloud = _modified[uid];
    for (const EditedCell& cell : cells) {
        const auto [entry, isNew] = cloud.try_emplace(cell.place->identifier, cell);
        entry->second.after = cell.after;
    }
}

void ClassUndoStack::add(std::vector<CloudEdit> edit)
{
    Step step;
    for (CloudEdit& cloud : edit) {
        if (cloud.outcome.cells.empty()) continue;
        note(cloud.uid, cloud.outcome.cells);
        step.push_back({cloud.uid, cloud.viewer, std::move(cloud.outcome.undo)});
    }
    if (!step.empty()) _history.push_back(std::move(step));
}

std::vector<CloudEdit> ClassUndoStack::undo()
{
    std::vector<CloudEdit> undone;
    if (_history.empty()) return undone;
    Step step = std::move(_history.back());
    _history.pop_back();
    const VelBrx::EditDescription description = describe(R"({"op":"undo"})");
    Step left;
    for (CloudChange& cloud : step) {
        undone.push_back({cloud.uid, cloud.viewer, revert(cloud.undo, description)});
        note(cloud.uid, undone.back().outcome.cells);
        if (!undone.back().outcome.status) left.push_back(std::move(cloud));
    }
    if (!left.empty()) _history.push_back(std::move(left));
    return undone;
}

std::vector<CloudEdit> ClassUndoStack::reset()
{
    std::vector<CloudEdit> undone;
    const VelBrx::EditDescription description = describe(R"({"op":"resetClasses"})");
    bool isWhole = true;
    for (const auto& [uid, cloud] : modified()) {
        std::map<VelBrx::FileIdentity, ClassUndo> stores; // a uid may have been given to another file
        for (const auto& [identifier, cell] : cloud)
            stores[cell.place->file->identity()].cells.push_back(difference(cell));
        for (const auto& [file, undo] : stores) {
            undone.push_back({uid, uid, revert(undo, description)});
            isWhole = isWhole && undone.back().outcome.status;
        }
    }
    if (isWhole) forgetAll();
    return undone;
}

void ClassUndoStack::save()
{
    std::vector<CellPlacePtr> places;
    for (const auto& [uid, cloud] : modified())
        for (const auto& [identifier, cell] : cloud)
            places.push_back(cell.place);
    markSaved(places);
    forgetAll();
}

void ClassUndoStack::forgetAll()
{
    _history.clear();
    const VelThreads::Lock lock(_mutex);
    _modified.clear();
}

ClassUndoStack::Modified ClassUndoStack::modified() const
{
    const VelThreads::Lock lock(_mutex);
    return _modified;
}

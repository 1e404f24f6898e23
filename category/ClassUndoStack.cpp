#include "category/ClassUndoStack.h"

#include <algorithm>

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
        step.push_back({cloud.uid, cloud.viewer, std::move(cloud.outcome.changes)});
    }
    if (!step.empty()) _history.push_back(std::move(step));
}

std::vector<CloudEdit> ClassUndoStack::undo()
{
    std::vector<CloudEdit> undone;
    if (_history.empty()) return undone;
    Step step = std::move(_history.back());
    _history.pop_back();
    for (CloudChange& cloud : step) {
        undone.push_back({cloud.uid, cloud.viewer, revertChanges(std::move(cloud.cells))});
        note(cloud.uid, undone.back().outcome.cells);
    }
    return undone;
}

std::vector<CloudEdit> ClassUndoStack::reset()
{
    std::vector<CloudEdit> undone;
    for (const auto& [uid, cloud] : modified()) {
        std::vector<CellChange> changes;
        for (const auto& [identifier, cell] : cloud)
            changes.push_back(difference(cell));
        undone.push_back({uid, uid, revertChanges(std::move(changes))});
    }
    forgetAll();
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

#include "session/JournalSteps.h"

#include "session/OperationText.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <utility>

using VelBrx::EditEntry;
using VelOsgDBBrx::EditStep;

const std::string kCancelOperation = R"({"op":"cancel"})";

int64_t timeBehind(int64_t newest)
{
    using namespace std::chrono;
    const int64_t now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    return std::max(now, newest + 1);
}

namespace {

/// Where a change is among changes, or would be.
template <class Changes>
auto placeOf(Changes& changes, uint64_t number)
{
    return std::lower_bound(
        changes.begin(), changes.end(), number,
        [](const StoreSteps::Change& change, uint64_t other) { return change.number < other; });
}

} // namespace

StoreSteps::StoreSteps(const VelBrx::EditHistory& history, std::string path)
    : _path(std::move(path)), _base(history.base), _state(history.base)
{
    for (const EditEntry& entry : history.entries)
        note(entry);
    for (const Change& change : _changes) {
        if (change.isCancelled) continue;
        _newestEdit = std::max(_newestEdit, change.key.time);
        _lastEdit = change.number;
    }
}

void StoreSteps::note(const EditEntry& entry)
{
    const auto changed = placeOf(_changes, entry.change);
    switch (entry.kind) {
    case EditEntry::Kind::CHANGE:
        _changes.push_back({{entry.time, entry.author, entry.operation},
                            entry.number,
                            _state,
                            entry.points,
                            entry.isDone,
                            entry.isUnsaved});
        _state = entry.number;
        break;
    case EditEntry::Kind::UNDO:
        changed->undoneBy = entry.number;
        changed->undoneTime = entry.time;
        changed->isCancelled = entry.operation == kCancelOperation;
        _state = changed->parent;
        break;
    case EditEntry::Kind::REDO:
        _state = entry.change;
        break;
    case EditEntry::Kind::SAVE:
        break;
    }
    _moments.push_back({entry.time, _state});
    _newestTime = std::max(_newestTime, entry.time);
}

const StoreSteps::Change* StoreSteps::find(uint64_t state) const
{
    const auto found = placeOf(_changes, state);
    return found != _changes.end() && found->number == state ? &*found : nullptr;
}

const StoreSteps::Change* StoreSteps::findUndone(uint64_t state) const
{
    const Change* last = nullptr;
    for (const Change& change : _changes)
        if (change.parent == state && !change.isCancelled && change.undoneBy > _lastEdit &&
            (!last || change.undoneBy > last->undoneBy))
            last = &change;
    return last;
}

uint64_t StoreSteps::stateAt(int64_t time) const
{
    const auto last = std::find_if(_moments.rbegin(), _moments.rend(),
                                   [time](const Moment& moment) { return moment.time <= time; });
    return last == _moments.rend() ? _base : last->state;
}

uint64_t StoreSteps::pointsBetween(uint64_t from, uint64_t to) const
{
    uint64_t points = 0;
    while (from != to) {
        uint64_t& later = from > to ? from : to; // a change has a greater number than the state it follows
        const Change* change = find(later);
        if (!change) break;
        points += change->points;
        later = change->parent;
    }
    return points;
}

const StepKey* JournalSteps::findUndo() const
{
    const StepKey* newest = nullptr;
    for (const StoreSteps& store : _stores) {
        const StoreSteps::Change* change = store.find(store.state());
        if (change && (!newest || *newest < change->key)) newest = &change->key;
    }
    return newest;
}

/// Of what was undone since the newest edit, the oldest edit was undone last.
const StepKey* JournalSteps::findRedo(int64_t newestOwn) const
{
    const int64_t newest = std::max(newestOwn, newestEdit());
    const StepKey* oldest = nullptr;
    for (const StoreSteps& store : _stores) {
        const StoreSteps::Change* change = store.findUndone(store.state());
        if (change && change->undoneTime > newest && (!oldest || change->key < *oldest))
            oldest = &change->key;
    }
    return oldest;
}

std::vector<uint64_t> JournalSteps::statesBefore(const StepKey& step) const
{
    std::vector<uint64_t> states;
    for (const StoreSteps& store : _stores) {
        uint64_t state = store.state();
        for (const auto* change = store.find(state); change && change->key == step;
             change = store.find(state))
            state = change->parent;
        states.push_back(state);
    }
    return states;
}

std::vector<uint64_t> JournalSteps::statesBehind(const StepKey& undone) const
{
    std::vector<uint64_t> states;
    for (const StoreSteps& store : _stores) {
        uint64_t state = store.state();
        for (const auto* change = store.findUndone(state); change && change->key == undone;
             change = store.findUndone(state))
            state = change->number;
        states.push_back(state);
    }
    return states;
}

std::vector<uint64_t> JournalSteps::statesAt(int64_t time) const
{
    std::vector<uint64_t> states;
    for (const StoreSteps& store : _stores)
        states.push_back(store.stateAt(time));
    return states;
}

int64_t JournalSteps::newestTime() const
{
    int64_t newest = 0;
    for (const StoreSteps& store : _stores)
        newest = std::max(newest, store.newestTime());
    return newest;
}

int64_t JournalSteps::newestEdit() const
{
    int64_t newest = 0;
    for (const StoreSteps& store : _stores)
        newest = std::max(newest, store.newestEdit());
    return newest;
}

std::vector<EditStep> JournalSteps::list() const
{
    std::map<StepKey, EditStep> steps;
    for (const StoreSteps& store : _stores)
        for (const StoreSteps::Change& change : store.changes()) {
            if (change.isCancelled) continue;
            EditStep& step = steps[change.key];
            step.time = change.key.time;
            step.author = change.key.author;
            step.operation = change.key.operation;
            step.name = OperationText::nameOf(step.operation);
            step.points += change.points;
            step.stores.push_back(store.path());
            step.isDone |= change.isDone;
            step.isUnsaved |= change.isUnsaved;
        }
    std::vector<EditStep> list;
    for (auto& [key, step] : steps)
        list.push_back(std::move(step));
    return list;
}

#pragma once

#include <VelBrx/EditHistory.h>
#include <VelOsgDBBrx/EditSession.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

/// The operation of an undo that takes a cancelled or failed edit back: that is no step.
extern const std::string kCancelOperation;

/// The present, or right behind the newest time there is where that is later. Microseconds since 1970, UTC.
int64_t timeBehind(int64_t newest);

/// What the entries of one edit have in common in all stores.
struct StepKey
{
    int64_t time = 0;
    std::string author;
    std::string operation;

    bool operator==(const StepKey& other) const
    {
        return std::tie(time, author, operation) == std::tie(other.time, other.author, other.operation);
    }
    bool operator<(const StepKey& other) const
    {
        return std::tie(time, author, operation) < std::tie(other.time, other.author, other.operation);
    }
};

/// The changes of one store as undo and redo see them.
class StoreSteps
{
public:
    struct Change
    {
        StepKey key;
        uint64_t number = 0;
        uint64_t parent = 0; ///< the state that it was made on
        uint64_t points = 0;
        bool isDone = false;
        bool isUnsaved = false;
        uint64_t undoneBy = 0; ///< the last entry that took it back
        int64_t undoneTime = 0;
        bool isCancelled = false; ///< that entry is of `kCancelOperation`
    };

    /// `path`: of the store.
    StoreSteps(const VelBrx::EditHistory& history, std::string path);

    const std::string& path() const { return _path; }
    const std::vector<Change>& changes() const { return _changes; } ///< in the order of their numbers
    uint64_t state() const { return _state; }

    /// The change that led to a state; null for that before the first one.
    const Change* find(uint64_t state) const;

    /// The change that was undone last of those that were made on a state; null where there is none, or the
    /// store was edited since.
    const Change* findUndone(uint64_t state) const;

    /// The state behind the last entry that is not newer than a time.
    uint64_t stateAt(int64_t time) const;

    /// The points of the changes between two states.
    uint64_t pointsBetween(uint64_t from, uint64_t to) const;

    int64_t newestTime() const { return _newestTime; } ///< of all entries
    int64_t newestEdit() const { return _newestEdit; } ///< of the changes that were not cancelled

private:
    void note(const VelBrx::EditEntry& entry);

    struct Moment
    {
        int64_t time;
        uint64_t state;
    };

    std::string _path;
    uint64_t _base = 0; ///< the state before the first entry
    uint64_t _state = 0;
    std::vector<Change> _changes;
    std::vector<Moment> _moments; ///< behind each entry
    int64_t _newestTime = 0;
    int64_t _newestEdit = 0;
    uint64_t _lastEdit = 0; ///< the number of the last change that was not cancelled
};

/// The steps of several stores in one order.
class JournalSteps
{
public:
    /// `path`: of the store whose history it is.
    void add(const VelBrx::EditHistory& history, const std::string& path)
    {
        _stores.emplace_back(history, path);
    }

    const StoreSteps& store(size_t place) const { return _stores[place]; }

    /// The newest step that is in effect; null where there is none.
    const StepKey* findUndo() const;

    /// The step that is done again next; null where there is none. One that was undone before `newestOwn` is
    /// none any more: something else was done since.
    const StepKey* findRedo(int64_t newestOwn) const;

    /// \name The state that a step leads each store to
    /// @{
    std::vector<uint64_t> statesBefore(const StepKey& step) const;
    std::vector<uint64_t> statesBehind(const StepKey& undone) const;
    std::vector<uint64_t> statesAt(int64_t time) const;
    /// @}

    int64_t newestTime() const; ///< of all entries
    int64_t newestEdit() const; ///< of the changes that were not cancelled

    /// All steps but those that were cancelled, the oldest first.
    std::vector<VelOsgDBBrx::EditStep> list() const;

private:
    std::vector<StoreSteps> _stores;
};

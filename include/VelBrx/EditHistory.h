#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/Status.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace VelBrx {

/// An entry of a store's journal.
struct EditEntry
{
    enum class Kind
    {
        CHANGE, ///< an edit
        UNDO,   ///< took a change back
        REDO,   ///< did a change again that was taken back
        SAVE    ///< brought classes into the store
    };

    uint64_t number = 0; ///< ascending without gaps
    int64_t time = 0;    ///< microseconds since 1970, UTC
    Kind kind = Kind::CHANGE;
    std::string author;
    std::string operation;     ///< as it was given: JSON as scripts have it
    uint64_t points = 0;       ///< that a change changes
    uint8_t field = 0;         ///< of a change, the byte of the point record
    uint64_t change = 0;       ///< that an UNDO or a REDO is about
    uint64_t position = 0;     ///< byte of the journal where it begins
    bool isDone = false;       ///< of a change: its points have it now, saved or not
    bool isUnsaved = false;    ///< of a change: the store's bytes do not show it as it is now
    bool isUnfinished = false; ///< the program that made it did not end well: the next one finishes it
};

/// What a journal tells about a store, without its points.
struct EditHistory
{
    bool exists = false;
    uint64_t forgotten = 0; ///< number of the last entry that was forgotten; the first one follows it
    uint64_t base = 0;      ///< the state that the first entry found
    uint64_t state = 0;     ///< the change that led to the present state
    std::vector<EditEntry> entries;
    uint64_t unfinishedBytes = 0; ///< behind the last entry: of one that was being written
};

/// The place of a store's journal: its path with ".edits" behind it.
VEL_BRX_EXPORT std::string journalPath(const std::string& store);

/// Reads the journal of a store, but for the points of its edits; success without entries where there is
/// none. Changes nothing. Any thread may call it, also while edits are made.
VEL_BRX_EXPORT Status readEditHistory(const std::string& store, EditHistory& history);

/// Called with consecutive points of a change: records of the store.
using ChangeVisitor = std::function<void(uint64_t change, uint64_t first, uint64_t count)>;

/// Visits the points of changes of a store's journal, one change after the other. Fails where there is no
/// such change, or it is damaged. Changes nothing; any thread may call it, also while edits are made.
VEL_BRX_EXPORT Status visitChanges(const std::string& store, const std::vector<uint64_t>& changes,
                                   const ChangeVisitor& visit);

/// The changes that lead from the state before entry `first` to the one behind entry `last`, in their order:
/// numbers of entries. What was taken back until `last` is left out. Fails where there are no such entries.
VEL_BRX_EXPORT Status effectiveEdits(const EditHistory& history, uint64_t first, uint64_t last,
                                     std::vector<uint64_t>& changes);

/// Whether the program that edited the store last was killed: opening its `EditJournal` finishes what it
/// left. False where there is no journal or it cannot be read.
VEL_BRX_EXPORT bool needsRecovery(const std::string& store);

/// Checks the journal of a store whole, and the store's bytes against it: each point of an edit has the byte
/// that the edits lead to, through all of them back to the first. Returns every problem, one line each, at
/// most 100 of a kind. Nothing where there is no journal. What was left unfinished is no problem. Memory: a
/// byte for each point of a block of 65536 with edits, at most 512 MiB.
VEL_BRX_EXPORT std::vector<std::string> verifyEdits(const std::string& store);

/// Forgets the edits made before a time, the oldest first, as far as nothing that is kept needs them; what
/// was not saved is kept. `forgotten` is their number. The store must be free to be edited, and nobody have
/// its journal open.
VEL_BRX_EXPORT Status forgetEdits(const std::string& store, int64_t before, uint64_t& forgotten);

} // namespace VelBrx

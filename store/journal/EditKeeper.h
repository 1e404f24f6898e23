#pragma once

#include <VelBrx/AsBuilt.h>
#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelBrx/KeptEdits.h>
#include <VelBrx/StoreInfo.h>

#include "store/io/ParallelRun.h"
#include "store/journal/JournalFile.h"
#include "store/journal/PointMatch.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace VelBrx::Journal {

/// Brings the edits of a store into the one that is built to take its place, and writes them down in a new
/// journal: entry after entry, with its author, time and operation, whether it was undone or not saved. Its
/// points are those that `PointMatch` finds in the new store.
///
/// What the old store has of edits that its journal does not tell, because they were forgotten or made
/// without it, becomes the first change of the new one.
///
/// The old store and its journal stay as they are. Nobody edits the store meanwhile; other processes cannot.
/// Memory: a bit for each point of the old store, two bytes for each point of blocks with edits, and what it
/// is given. One thread.
class EditKeeper
{
public:
    explicit EditKeeper(const std::string& store);

    /// Takes away the new journal, unless `giveName` was called.
    ~EditKeeper();
    EditKeeper(const EditKeeper&) = delete;
    EditKeeper& operator=(const EditKeeper&) = delete;

    /// Takes the old store's lock for editing, and finishes what a killed program left. Success where there
    /// is neither store nor journal.
    Status open();

    /// Does the edits in the store at `rebuilt`, which has not its name yet, and writes their journal. Both
    /// are on the disk then.
    Status write(const std::string& rebuilt, uint64_t memory, ParallelRun& run);

    /// Gives the new journal its name. Call after the new store has got its own: where that is not done, as
    /// after a kill, whoever opens the store next does it.
    Status giveName();

    const KeptEdits& report() const { return _report; }

    /// A line about edits that could not be looked for; mostly empty.
    const std::string& note() const { return _note; }

private:
    class Replay;
    using PointVisitor = std::function<void(uint64_t point, uint8_t field, uint8_t value)>;

    Status visitEarlier(const PointVisitor& visit) const;
    Status askForPoints(PointMatch& match) const;

    const std::string _store;
    std::shared_ptr<File> _file; ///< of the old store; null where there is none
    StoreInfo _info;
    AsBuilt _built;
    std::shared_ptr<EditJournal> _lock; ///< keeps other processes away
    JournalFile _old;
    bool _isPending = false; ///< there is a new journal without its name
    KeptEdits _report;
    std::string _note;
};

} // namespace VelBrx::Journal

#pragma once

#include "store/journal/ChangeRuns.h"
#include "store/journal/JournalChain.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>

#include <string>
#include <vector>

namespace VelBrx::Journal {

/// A store's journal on the disk. An entry is written behind the last one: text and runs first, then its
/// head, then all of it is synced. Until then it does not count, and a failure takes it away. A temporary
/// journal has no name, so that nothing of it outlives the process, and is not synced. One thread at a time;
/// messages name the journal's path.
class JournalFile
{
public:
    enum class Access
    {
        READ,
        WRITE ///< and nobody else writes meanwhile
    };

    JournalFile(const std::string& store, JournalPlace place);

    /// Of a temporary journal words for it.
    const std::string& path() const { return _path; }
    const JournalChain& chain() const { return _chain; }

    /// Opens the journal and reads its chain. Success without a file where there is none: see `exists`. Where
    /// a build was killed between giving a store its name and giving it to the journal, it is that journal.
    Status open(Access access);

    bool exists() const { return _size > 0; }

    /// Whether it is the journal of this store.
    Status checkStore(uint64_t storeId, uint64_t pointCount) const;

    /// Bytes behind the last whole entry.
    uint64_t tailLength() const { return _size - _chain.end(); }

    /// Takes away what follows the last whole entry, and that too where its runs are not whole and it is
    /// pending. Fails where a whole entry lies behind the damage. Open for writing.
    Status cutTail();

    /// Visits the entries of the chain.
    Status visitEntries(const JournalChain::Visitor& visit) const;

    /// Makes the file of a store that has no journal, and opens it for writing.
    Status create(const FileHeader& header);

    /// \name An entry. Of the head only kind, field, mask, deferred and other need be set for `begin`.
    /// A `time` of 0 is now.
    /// @{
    Status begin(EntryHead head, const std::string& author, const std::string& operation);
    uint64_t number() const { return _head.number; } ///< of the entry that was begun
    Status append(const std::vector<uint8_t>& block);
    Status finish(uint64_t points);
    void cancel();
    /// @}

    /// Writes an entry without runs.
    Status write(const EntryHead& head, const std::string& author, const std::string& operation = {});

    /// Writes that the store's disk has all there is.
    Status mark();

    /// The runs of a change.
    Status readRuns(uint64_t change, EntryHead& head, const RunsVisitor& visit) const;
    Status readRuns(uint64_t change, const RunsVisitor& visit) const;

private:
    Status take(int descriptor, Access access);
    Status createTemporary(const FileHeader& header);
    Status lock() const;
    Status checkNamed() const;
    Status sync();
    Status addToChain();
    bool hasHeadBehind(uint64_t position) const;

    const JournalPlace _place;
    const std::string _store;
    const std::string _path;
    DiskFile _file;
    uint64_t _size = 0; ///< of the file
    JournalChain _chain;
    EntryHead _head; ///< of the entry that was begun
    Status _usable;  ///< a failure that could not be taken back
};

/// What a journal tells without the points of its edits.
Status readHistory(const JournalFile& journal, EditHistory& history);
/// The points of changes of a journal, one change after the other.
Status visitChanges(const JournalFile& journal, const std::vector<uint64_t>& changes,
                    const ChangeVisitor& visit);

/// The name under which a store that is built to replace another one has its journal, as long as neither has
/// got its name. First the store gets its own, then `settleRebuilt` renames the journal; both are on the disk
/// by then. So the store's id tells at every moment which of two journals is its own.
std::string rebuiltStore(const std::string& store);

/// Gives a rebuilt store's journal its name, where there is one and the store has got its own.
Status settleRebuilt(const std::string& store);

} // namespace VelBrx::Journal

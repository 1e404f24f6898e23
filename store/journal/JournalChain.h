#pragma once

#include "store/io/DiskFile.h"
#include "store/journal/JournalFormat.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace VelBrx::Journal {

/// The entries of a journal in their order, and the states of the store that they make.
///
/// A state is known by the number of the change that led to it. Each change follows a state, so that states
/// are a tree: an edit after an undo begins a branch. A change that was undone stays in the journal.
/// Memory: 32 bytes an entry. One thread at a time.
class JournalChain
{
public:
    struct Entry
    {
        uint64_t position = 0; ///< of its head in the file
        uint64_t other = 0;    ///< see EntryHead
        uint64_t state = 0;    ///< behind it
        Kind kind = Kind::MARK;
        uint8_t field = 0;
        uint8_t mask = 0;
        bool deferred = false;
    };

    /// One change on the way from a state to another.
    struct Step
    {
        uint64_t change;
        bool forward; ///< or it is taken back
    };

    /// Called with each entry that is no mark.
    using Visitor = std::function<void(const EntryHead& head, const std::string& author,
                                       const std::string& operation, uint64_t position)>;

    /// Reads the heads of all entries, authors and operations; runs are skipped.
    /// `size` is that of the file. What is behind the last whole entry is left out. The message of a failure
    /// follows the name of the journal.
    Status read(const DiskFile& file, uint64_t size, const Visitor& visit = nullptr);

    /// Makes this the chain of a journal without entries.
    void begin(const FileHeader& header);

    /// Adds an entry behind the last one; fails when it does not fit those before.
    Status add(const EntryHead& head);

    const FileHeader& header() const { return _header; }
    uint64_t firstNumber() const { return _header.forgotten + 1; }
    uint64_t lastNumber() const { return _header.forgotten + _entries.size(); }
    bool has(uint64_t number) const { return number >= firstNumber() && number <= lastNumber(); }
    const Entry& entry(uint64_t number) const { return _entries[number - firstNumber()]; }

    /// The state that everything in the journal led to, and the one whose deferred changes are in the store.
    uint64_t state() const { return _state; }
    uint64_t savedState() const { return _savedState; }

    /// The state behind an entry, or behind those that were forgotten.
    uint64_t stateAfter(uint64_t number) const;

    /// Where the saved state was behind an entry.
    uint64_t savedStateAfter(uint64_t number) const;

    /// Whether the entry leads there: a change of this journal, or what was before the first one.
    bool isState(uint64_t number) const;

    std::vector<Step> path(uint64_t from, uint64_t to) const;

    /// The path from the saved state to `to`, of deferred changes alone.
    std::vector<Step> unsavedPath(uint64_t from, uint64_t to) const;

    /// The first entry that may not be in the store, or not on its disk; all behind it may not either.
    /// `lastNumber() + 1` when there is none.
    uint64_t firstPending() const { return _marked + 1; }

    /// Position behind the last whole entry: where the next one is written.
    uint64_t end() const { return _end; }

    /// Takes the last entry, which is pending, away again.
    void dropLast();

private:
    Status check(const EntryHead& head) const;

    FileHeader _header;
    std::vector<Entry> _entries; ///< no marks
    uint64_t _state = 0;
    uint64_t _savedState = 0;
    uint64_t _marked = 0; ///< number of the last entry that a mark covers
    uint64_t _end = kUnit;
};

/// Reads the head of an entry again that is in a chain.
Status readHead(const DiskFile& file, uint64_t position, EntryHead& head);

} // namespace VelBrx::Journal

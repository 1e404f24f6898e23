#pragma once

#include <VelBrx/EditJournal.h>
#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// A change of hidden bits that is written down before it is made: into the store, then into the arrays of
/// loaded cells. The caller holds the store's edit lock. What goes wrong is noted in the command's result.
class JournalledEdit
{
public:
    /// Begins the change; `octree.keepsJournal` is set. An edit without an author is by the journal's.
    JournalledEdit(OctreeInfo& octree, VelBrx::EditDescription edit, VelOsgDBBrx::CmdResult& result);

    /// Points may be recorded.
    bool isOpen() const { return _isOpen; }

    VelBrx::EditRecorder& recorder() { return *_recorder; }

    /// The record number of the first of some mapped records.
    uint64_t recordOf(const uint8_t* records) const;

    /// Writes the change down, unless `recorded` failed, and makes it. Its number; 0 where nothing changed.
    uint64_t finish(const VelBrx::Status& recorded);

private:
    void refuse(const VelBrx::Status& status);

    OctreeInfo& _octree;
    VelOsgDBBrx::CmdResult& _result;
    std::shared_ptr<VelBrx::EditJournal> _journal;
    std::optional<VelBrx::EditRecorder> _recorder;
    bool _isOpen = false;
};

/// Takes a change of hidden bits back: as an undo where it is the store's newest, else by showing those of
/// its points that are hidden. False where the store took no more bytes: it may be tried again.
bool undoJournalled(OctreeInfo& octree, uint64_t change, VelOsgDBBrx::CmdResult& result);

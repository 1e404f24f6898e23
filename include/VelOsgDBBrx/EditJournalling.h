#pragma once

#include <VelBrx/EditJournal.h>
#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <memory>
#include <string>

namespace VelOsgDBBrx {

/// The journal of a cloud's store, which holds every hide, bring-back, reset and their undo from when it is
/// switched on. Off at first; then nothing is written down, and an undo lasts as long as the process.
///
/// Where it is on, an edit is on the disk before a point changes: a kill leaves it whole or not begun, and
/// its undo takes no memory. Where it cannot be written (a full disk, a read-only folder, another program
/// that has it) the edit is refused (`CmdResult::storesNotJournalled`), and switching off is the user's
/// choice to edit all the same. Classes are not written down. Any thread may call it.
class VEL_OSGDB_BRX_EXPORT EditJournalling
{
public:
    /// From the next edit on. Where a program that edited the store was killed, what it left is finished now,
    /// and `note` is a line that says so; a failure says why it could not be. Whether anything can be written
    /// is seen by the first edit. `author`: empty for the login name.
    ///
    /// A `TEMPORARY` journal is the user's choice to edit all the same where none can be kept: it takes edits
    /// back as one beside the store does, and is gone with the process.
    static VelBrx::Status switchOn(OctreeInfo& octree, const std::string& author, std::string& note,
                                   VelBrx::JournalPlace place = VelBrx::JournalPlace::BESIDE_STORE);

    /// Closes the journal; edits go on without it.
    static void switchOff(OctreeInfo& octree);

    /// The open journal, to list, undo or redo what it holds; null where it is off. Hold the store's edit
    /// lock: commands do.
    static VelBrx::Status open(OctreeInfo& octree, std::shared_ptr<VelBrx::EditJournal>& journal);
};

} // namespace VelOsgDBBrx

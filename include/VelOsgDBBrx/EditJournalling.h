#pragma once

#include <VelBrx/EditJournal.h>
#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdint>
#include <memory>
#include <string>

namespace VelOsgDBBrx {

/// The journal of a cloud's store, which holds every hide, bring-back, change of classes and their undo from
/// when it is switched on. Off at first; then nothing is written down, and an undo lasts as long as the
/// process.
///
/// Where it is on, an edit is on the disk before a point changes: a kill leaves it whole or not begun, and
/// its undo takes no memory. Where it cannot be written (a full disk, a read-only folder, another program
/// that has it) the edit is refused (`CmdResult::storesNotJournalled`,
/// `CategoryCounts::storesNotJournalled`), and a temporary journal, or none, is the user's choice to edit all
/// the same.
///
/// Classes reach the store when they are saved (`CategoryCalcTool::writeToStores`). Those that a program did
/// not save are shown again when the next one switches the journal on, as not saved. Any thread may call it.
class VEL_OSGDB_BRX_EXPORT EditJournalling
{
public:
    /// From the next edit on. Where a program that edited the store was killed, what it left is finished now,
    /// and classes that are not saved are shown; `note` is a line that says so. A failure says why that could
    /// not be. Whether anything can be written is seen by the first edit. `author`: empty for the login name.
    /// Classes that were edited without this journal and are not saved are written down in it.
    ///
    /// A `TEMPORARY` journal is the user's choice to edit all the same where none can be kept: it takes edits
    /// back as one beside the store does, and is gone with the process.
    static VelBrx::Status switchOn(OctreeInfo& octree, const std::string& author, std::string& note,
                                   VelBrx::JournalPlace place = VelBrx::JournalPlace::BESIDE_STORE);

    /// Edits go on without the journal. It is closed once nobody has classes of it to save or to take back.
    static void switchOff(OctreeInfo& octree);

    /// Gives every point the class that is in the store: what was edited and not saved is dropped. It is an
    /// edit like others, with an undo in the journal. `points` is how many changed.
    static VelBrx::Status dropUnsaved(OctreeInfo& octree, uint64_t& points);

    /// The open journal, to list, undo or redo what it holds; null where it is off. Hold the store's edit
    /// lock: commands do. Fails where it has classes that another program has not saved since it was switched
    /// on: switch it on again.
    static VelBrx::Status open(OctreeInfo& octree, std::shared_ptr<VelBrx::EditJournal>& journal);
};

} // namespace VelOsgDBBrx

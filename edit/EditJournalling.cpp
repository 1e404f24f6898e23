#include <VelOsgDBBrx/EditJournalling.h>

#include "edit/StoreEdit.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelBrx/MiraLasRead.h>

namespace VelOsgDBBrx {

using VelBrx::EditJournal;
using VelBrx::JournalPlace;
using VelBrx::Status;

namespace {

/// What a killed program had left, in a line; empty where it left nothing.
std::string describe(const std::string& store, const EditJournal::Recovery& recovery)
{
    if (recovery.pointsFinished > 0)
        return store + ": an edit that was broken off was finished, " +
               std::to_string(recovery.pointsFinished) + " points";
    if (recovery.cutUnfinished) return store + ": an edit that was broken off before it began is gone";
    return {};
}

} // namespace

Status EditJournalling::open(OctreeInfo& octree, std::shared_ptr<EditJournal>& journal)
{
    journal = octree.journal;
    if (journal || !octree.keepsJournal) return {};
    VelBrx::BrxHeader header;
    if (!VelBrx::MiraLasRead::getBrxHeader(header, octree.pointPath.c_str()))
        return Status::failure(octree.pointPath + ": is no store that can be read; put it back");
    const VelBrx::JournalledStore store = {
        octree.pointPath,
        octree.pointFile,
        header.storeId,
        header.pointCount,
        header.pointDataStart,
        octree.isJournalTemporary ? JournalPlace::TEMPORARY : JournalPlace::BESIDE_STORE};
    const Status status = EditJournal::open(store, octree.journal);
    journal = octree.journal;
    return status;
}

Status EditJournalling::switchOn(OctreeInfo& octree, const std::string& author, std::string& note,
                                 JournalPlace place)
{
    note.clear();
    if (!isEditable(octree)) return {}; // there is nothing to write down
    const StoreEditLock lock(octree);
    const bool isTemporary = place == JournalPlace::TEMPORARY;
    if (octree.isJournalTemporary != isTemporary) octree.journal.reset();
    octree.keepsJournal = true;
    octree.isJournalTemporary = isTemporary;
    octree.journalAuthor = author;
    if (isTemporary || !VelBrx::needsRecovery(octree.pointPath)) return {};
    std::shared_ptr<EditJournal> journal;
    Status status = open(octree, journal);
    if (status.kind() == Status::Kind::IN_USE) return {}; // nobody was killed: it is being edited
    if (status) note = describe(octree.pointPath, journal->recovery());
    return status;
}

void EditJournalling::switchOff(OctreeInfo& octree)
{
    if (!octree.pointFile) return;
    const StoreEditLock lock(octree);
    octree.keepsJournal = false;
    octree.journal.reset();
}

} // namespace VelOsgDBBrx

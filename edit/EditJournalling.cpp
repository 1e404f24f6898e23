#include <VelOsgDBBrx/EditJournalling.h>

#include "edit/CellClasses.h"
#include "edit/StoreEdit.h"
#include "edit/UnsavedClasses.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelBrx/MiraLasRead.h>

#include <algorithm>

namespace VelOsgDBBrx {

using VelBrx::EditJournal;
using VelBrx::JournalPlace;
using VelBrx::Status;

namespace {

/// What was found when a journal was opened, in a line; empty where that is nothing.
std::string describe(const OctreeInfo& octree, const EditJournal::Recovery& recovery, uint64_t unsaved,
                     uint64_t replaced)
{
    std::string found;
    const auto add = [&](const std::string& what) { found += (found.empty() ? "" : "; ") + what; };
    if (recovery.pointsFinished > 0)
        add("an edit that was broken off was finished, " + std::to_string(recovery.pointsFinished) +
            " points");
    else if (recovery.cutUnfinished)
        add("an edit that was broken off before it began is gone");
    if (unsaved > 0) add(std::to_string(unsaved) + " points have classes that are not saved yet");
    if (replaced > 0)
        add(std::to_string(replaced) + " points keep the class that something else gave them in the store");
    return found.empty() ? found : octree.pointPath + ": " + found;
}

/// Whether a program that has ended left something in the journal of a store: half of an edit, or classes
/// that are not saved.
bool isLeft(const std::string& store)
{
    VelBrx::EditHistory history;
    if (!VelBrx::readEditHistory(store, history)) return false; // the first edit tells
    return history.unfinishedBytes > 0 ||
           std::any_of(history.entries.begin(), history.entries.end(),
                       [](const VelBrx::EditEntry& entry) { return entry.isUnfinished || entry.isUnsaved; });
}

/// Opens the journal of a store, whatever is in it.
Status openAny(OctreeInfo& octree)
{
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
    return EditJournal::open(store, octree.journal);
}

} // namespace

Status EditJournalling::open(OctreeInfo& octree, std::shared_ptr<EditJournal>& journal)
{
    journal = octree.journal;
    if (journal || !octree.keepsJournal) return {};
    if (Status status = openAny(octree); !status) return status;
    if (octree.journal->recovery().hasUnsaved && octree.journal->unsavedPoints() > 0) {
        octree.journal.reset();
        return Status::failure(octree.pointPath +
                               ": another program has ended and left classes that are not "
                               "saved; switch the journal on again, or open the store again");
    }
    journal = octree.journal;
    return {};
}

Status EditJournalling::switchOn(OctreeInfo& octree, const std::string& author, std::string& note,
                                 JournalPlace place)
{
    note.clear();
    const bool isTemporary = place == JournalPlace::TEMPORARY;
    if (!octree.pointFile || (!isTemporary && !isEditable(octree)))
        return {}; // there is nothing to write down
    const VelThreads::Lock one(classEditMutex());
    const StoreEditLock lock(octree);
    if (octree.isJournalTemporary != isTemporary) octree.journal.reset();
    octree.keepsJournal = true;
    octree.isJournalTemporary = isTemporary;
    octree.journalAuthor = author;
    if (octree.journal || (!hasUnwrittenClasses(octree) && (isTemporary || !isLeft(octree.pointPath))))
        return {};
    Status status = openAny(octree);
    if (status.kind() == Status::Kind::IN_USE) return {}; // nobody was killed: it is being edited
    uint64_t replaced = 0;
    if (status) status = takeOverClasses(octree, octree.journal, replaced);
    if (status)
        note = describe(octree, octree.journal->recovery(), countUnwrittenClasses(octree), replaced);
    else
        octree.journal.reset();
    return status;
}

void EditJournalling::switchOff(OctreeInfo& octree)
{
    if (!octree.pointFile) return;
    const StoreEditLock lock(octree);
    octree.keepsJournal = false;
    octree.journal.reset();
}

Status EditJournalling::dropUnsaved(OctreeInfo& octree, uint64_t& points)
{
    points = 0;
    if (!octree.pointFile) return {};
    const VelThreads::Lock one(classEditMutex());
    const StoreEditLock lock(octree);
    std::shared_ptr<EditJournal> journal;
    const Status opened = open(octree, journal);
    VelBrx::EditDescription edit;
    edit.operation = R"({"op":"dropUnsaved"})";
    uint64_t change = 0;
    return opened ? dropUnwrittenClasses(octree, journal, edit, points, change) : opened;
}

} // namespace VelOsgDBBrx

// Journals of edits as an enemy would write them: whatever they hold, reading, checking, forgetting, recovery
// and undo end, and a store keeps all bytes but hidden bits and classes.

#include "tests/fuzz/FuzzFile.h"
#include "tests/support/JournalBytes.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TestLas.h"

#include <VelBrx/Builder.h>
#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>

#include <algorithm>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

using namespace VelBrx;
using Bytes = std::vector<uint8_t>;

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t largest);

namespace {

constexpr uint64_t kPoints = 300;

std::string makeStore(const TempFolder& folder)
{
    TestLas las;
    for (uint64_t i = 0; i < kPoints; ++i)
        las.addPoint(static_cast<int32_t>(i * 37 % 1000), static_cast<int32_t>(i * 91 % 1000), 0);
    BuildOptions options;
    options.inputs = {folder.write("survey.las", las.bytes())};
    options.output = folder.file("store.brx");
    options.storeId = 1;
    options.threads = 1;
    BuildReport report;
    expect(buildStore(options, report).ok(), "no store");
    return options.output;
}

/// A store and its bytes, in a folder that goes with the process.
struct Target
{
    const TempFolder folder;
    const std::string store = makeStore(folder);
    const Bytes bytes = readFile(store);
    const uint32_t start = loadLe<uint32_t>(&bytes[96]);

    /// Puts the store there as it was built, where something has changed it, and this journal.
    void put(const uint8_t* journal, size_t size) const
    {
        if (readFile(store) != bytes) {
            const int file = open(store.c_str(), O_WRONLY | O_CLOEXEC);
            expect(pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
                   "no room");
            close(file);
        }
        unlink(journalPath(store).c_str());
        folder.write("store.brx.edits", Bytes(journal, journal + size));
    }

    void expectOthersKept() const
    {
        Bytes now = readFile(store);
        expect(now.size() == bytes.size(), "the store has another size");
        for (uint64_t i = 0; i < kPoints; ++i) {
            uint8_t* const record = &now[start + i * 36];
            const uint8_t* const before = &bytes[start + i * 36];
            expect((record[15] & 0xF0) == (before[15] & 0xF0), "other bits of byte 15 changed");
            record[15] = before[15];
            record[16] = before[16];
        }
        expect(now == bytes, "other bytes of the store changed");
    }
};

const Target& target()
{
    static const Target one;
    return one;
}

/// Changes every few points, from the values of the edit of the same kind before it.
void edit(EditJournal& journal, uint64_t number)
{
    EditRecorder recorder(journal);
    EditDescription what;
    const bool ofClasses = number % 2;
    what.field = ofClasses ? PointRecord::kClass : PointRecord::kFlags;
    what.mask = ofClasses ? 0xFF : PointRecord::kHiddenBits;
    what.deferred = ofClasses;
    what.author = "anna";
    expect(recorder.begin(what).ok(), "no edit");
    EditRuns runs(recorder);
    for (uint64_t point = number; point < kPoints; point += 1 + number)
        runs.add(point, 1, static_cast<uint8_t>(number > 1 ? number - 1 : 0),
                 static_cast<uint8_t>(number + 1));
    uint64_t change = 0;
    uint64_t points = 0;
    expect(runs.finish().ok() && recorder.commit(change).ok(), "no edit");
    (void)recorder.apply(nullptr, points);
}

/// A journal with changes, a branch, a save, and what is not finished.
Bytes makeSeed()
{
    const Target& at = target();
    unlink(journalPath(at.store).c_str());
    std::shared_ptr<EditJournal> journal;
    expect(EditJournal::open(at.store, journal).ok(), "no journal");
    uint64_t points = 0;
    for (uint64_t number = 0; number < 6; ++number) {
        edit(*journal, number);
        if (number == 2) (void)journal->save("", points);
        if (number == 3) (void)journal->moveTo(2, "bernd", nullptr, points);
    }
    return readFile(journalPath(at.store)); // still open: there is no mark
}

const Bytes& seed()
{
    static const Bytes bytes = makeSeed();
    return bytes;
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t largest, unsigned chance)
{
    if (size < JournalBytes::kUnit) {
        size = std::min(seed().size(), largest);
        std::copy_n(seed().begin(), size, data);
    }
    size = LLVMFuzzerMutate(data, size, largest);
    if (chance % 8 == 0) return size;
    Bytes journal(data, data + size);
    JournalBytes::fitChecksums(journal);
    std::copy(journal.begin(), journal.end(), data);
    return size;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Target& at = target();
    at.put(data, size);
    EditHistory history;
    (void)readEditHistory(at.store, history);
    std::vector<uint64_t> changes;
    for (const EditEntry& entry : history.entries)
        if (entry.kind == EditEntry::Kind::CHANGE) changes.push_back(entry.number);
    (void)visitChanges(at.store, changes, [](uint64_t, uint64_t first, uint64_t count) {
        expect(first < kPoints && count <= kPoints - first, "a run leads out of the store");
    });
    (void)verifyEdits(at.store);
    (void)needsRecovery(at.store);
    expect(readFile(at.store) == at.bytes, "reading changed the store");
    uint64_t forgotten = 0;
    if (size % 3 == 0) (void)forgetEdits(at.store, INT64_MAX, forgotten);
    std::shared_ptr<EditJournal> journal;
    if (!EditJournal::open(at.store, journal)) {
        at.expectOthersKept();
        return 0;
    }
    uint64_t points = 0;
    (void)journal->visitUnsaved([](const EditedPoints& edited) {
        expect(edited.first < kPoints && edited.count <= kPoints - edited.first, "a run leads out");
    });
    (void)journal->moveTo(history.forgotten, "", nullptr, points);
    (void)journal->save("", points);
    journal.reset();
    at.expectOthersKept();
    return 0;
}

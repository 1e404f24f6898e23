// Memory that runs out in each allocation in turn: whatever was wanted is done or fails, and nothing is half
// done.

#include "tests/faults/FailingAllocation.h"
#include "tests/support/BuildStore.h"
#include "tests/support/EditedStore.h"
#include "tests/support/TestSurvey.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/ExportLas.h>
#include <VelBrx/Normals.h>
#include <VelBrx/PointVisit.h>
#include <VelBrx/StoreInfo.h>
#include <VelBrx/Verify.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <new>

using namespace VelBrx;

namespace {

class NoMemory : public testing::Test
{
protected:
    void SetUp() override
    {
        TestSurvey survey;
        survey.side = 20;
        survey.classes = 4;
        ASSERT_TRUE(survey.write(las));
        buildStoreOf(las, store);
        stored = readFile(store);
    }

    /// Does `work` again and again, with one allocation more that succeeds each time, until all do; each is
    /// followed by `check`, which is told whether the work succeeded.
    template <class Work, class Check>
    static void sweep(const char* what, const Work& work, const Check& check)
    {
        int64_t failures = 0;
        for (int64_t succeeding = 0;; ++succeeding) {
            SCOPED_TRACE(std::string(what) + ", allocation " + std::to_string(succeeding));
            bool hasFailed = false;
            Status status;
            {
                const FailingAllocation failing(succeeding);
                try {
                    status = work();
                } catch (const std::bad_alloc&) {
                    status = Status::failure("thrown");
                }
                hasFailed = failing.hasFailed();
            }
            check(status);
            failures += !status;
            if (testing::Test::HasFailure()) return;
            if (!hasFailed) break;
        }
        EXPECT_GT(failures, 10) << what;
    }

    const TempFolder folder;
    const std::string las = folder.file("survey.las"), store = folder.file("survey.brx");
    std::vector<uint8_t> stored;
};

} // namespace

TEST_F(NoMemory, AFileIsMadeWholeOrNotAtAll)
{
    const auto madeOrNot = [&](const std::string& path) {
        return [&, path](const Status& status) {
            EXPECT_EQ(std::filesystem::exists(path), status.ok()) << status.message();
            std::error_code ignored;
            std::filesystem::remove(path, ignored);
            const auto left = std::distance(std::filesystem::directory_iterator(folder.path()), {});
            EXPECT_EQ(left, 2) << "something is left";
            EXPECT_TRUE(readFile(store) == stored);
        };
    };
    const std::string built = folder.file("built.brx");
    BuildOptions build;
    build.inputs = {las};
    build.output = built;
    build.threads = 2;
    BuildReport report;
    sweep(
        "build", [&] { return buildStore(build, report); }, madeOrNot(built));
    for (const char* name : {"out.las", "out.laz", "out.copc.laz"}) {
        const std::string out = folder.file(name);
        ExportOptions options;
        options.store = store;
        options.output = out;
        options.threads = 2;
        ExportReport files;
        sweep(
            name, [&] { return exportLas(options, files); }, madeOrNot(out));
    }
    NormalsOptions normals;
    normals.store = store;
    normals.neighbours = 8;
    normals.threads = 2;
    sweep(
        "normals", [&] { return writeNormals(normals); }, madeOrNot(normalsPath(store)));
}

TEST_F(NoMemory, AStoreIsReadWhollyOrNotAtAll)
{
    sweep(
        "open",
        [&] {
            StoreInfo info;
            std::unique_ptr<File> file;
            Status status = openStore(store, info, file);
            EXPECT_TRUE(!status || info.header.pointCount == 400);
            return status;
        },
        [](const Status&) {});
    sweep(
        "verify",
        [&] {
            const std::vector<std::string> problems = verifyStore(store);
            return problems.empty() ? Status() : Status::failure(problems[0]);
        },
        [](const Status&) {});
    sweep(
        "visit",
        [&] {
            PointVisit visit;
            visit.store = store;
            visit.threads = 2;
            std::atomic<uint64_t> points{0};
            const Status status = visitPoints(visit, [&](const PointBlock& block) { points += block.count; });
            EXPECT_TRUE(!status || points == 400);
            return status;
        },
        [](const Status&) {});
}

namespace {

constexpr uint64_t kEdited = 100; ///< points from the first on
constexpr uint8_t kNewClass = 9;

/// What edits have reported as done.
struct Reported
{
    uint64_t changes = 0;
    bool isSaved = false;
};

/// Gives points their value, from that in `stored`, whose points begin at `start`.
Status edit(EditJournal& journal, const std::vector<uint8_t>& stored, size_t start, uint8_t field,
            uint8_t value, Reported& reported)
{
    EditRecorder recorder(journal);
    EditDescription what;
    what.field = field;
    what.mask = field == PointRecord::kClass ? 0xFF : PointRecord::kHiddenBits;
    what.deferred = field == PointRecord::kClass;
    what.author = "anna";
    if (Status status = recorder.begin(what); !status) return status;
    EditRuns runs(recorder);
    for (uint64_t point = 0; point < kEdited; ++point)
        runs.add(point, 1, stored[start + point * PointRecord::kPointSize + field] & what.mask, value);
    uint64_t number = 0;
    uint64_t points = 0;
    Status status = runs.finish();
    if (status) status = recorder.commit(number);
    if (!status) return status;
    ++reported.changes;
    return recorder.apply(nullptr, points);
}

/// Hides points and gives them another class, undoes and redoes both, and saves that.
Status editAll(const std::string& store, const std::vector<uint8_t>& stored, size_t start, Reported& reported)
{
    std::shared_ptr<EditJournal> journal;
    Status status = EditJournal::open(store, journal);
    if (status)
        status = edit(*journal, stored, start, PointRecord::kFlags, PointRecord::kCulledBit, reported);
    if (status) status = edit(*journal, stored, start, PointRecord::kClass, kNewClass, reported);
    uint64_t points = 0;
    const uint64_t latest = status ? journal->state() : 0;
    for (const uint64_t state : {uint64_t{0}, latest})
        if (status) status = journal->moveTo(state, "anna", nullptr, points);
    if (status) status = journal->save("anna", points);
    reported.isSaved = status.ok();
    return status;
}

} // namespace

TEST_F(NoMemory, EditsThatWereReportedAreThere)
{
    BrxHeader header;
    StoreInfo info;
    ASSERT_TRUE(readStoreInfo(store, info));
    const auto start = static_cast<size_t>(info.header.pointDataStart);
    std::vector<uint8_t> hidden = stored;
    for (uint64_t point = 0; point < kEdited; ++point)
        hidden[start + point * PointRecord::kPointSize + PointRecord::kFlags] |= PointRecord::kCulledBit;
    std::vector<uint8_t> saved = hidden;
    for (uint64_t point = 0; point < kEdited; ++point)
        saved[start + point * PointRecord::kPointSize + PointRecord::kClass] = kNewClass;
    const std::vector<uint8_t>* const byChanges[] = {&stored, &hidden, &saved};
    Reported reported;
    sweep(
        "edits",
        [&] {
            reported = Reported();
            return editAll(store, stored, start, reported);
        },
        [&](const Status&) {
            EXPECT_TRUE(!reported.isSaved || readFile(store) == saved) << "what was saved is not there";
            EXPECT_EQ(verifyEdits(store), std::vector<std::string>());
            EditHistory history;
            EXPECT_TRUE(readEditHistory(store, history));
            uint64_t changes = 0;
            for (const EditEntry& entry : history.entries)
                changes += entry.kind == EditEntry::Kind::CHANGE;
            ASSERT_GE(changes, reported.changes);
            ASSERT_LE(changes, 2u);
            uint64_t points = 0;
            std::shared_ptr<EditJournal> journal;
            const Status opened = EditJournal::open(store, journal); // finishes what was not
            ASSERT_TRUE(opened) << opened.message();
            EXPECT_TRUE(journal->moveTo(changes, "bernd", nullptr, points)) << "each change has its number";
            EXPECT_TRUE(journal->save("bernd", points));
            journal.reset();
            EXPECT_TRUE(readFile(store) == *byChanges[changes]) << changes << " changes";
            std::filesystem::remove(journalPath(store));
            folder.write("survey.brx", stored);
        });
}

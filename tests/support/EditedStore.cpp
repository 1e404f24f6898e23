#include "tests/support/EditedStore.h"

#include "tests/support/ReadFile.h"
#include "tests/support/TestStore.h"

#include <gtest/gtest.h>

#include <random>

using namespace VelBrx;

std::vector<uint8_t> EditedStore::bytes(uint32_t count)
{
    TestStore store;
    store.index.storeId = kId;
    store.index.cubeSize = 1 << 20;
    std::mt19937 random(count);
    std::vector<TestPoint> points(count);
    for (TestPoint& point : points) {
        point.x = static_cast<int32_t>(random() % 100000);
        point.flags = static_cast<uint8_t>(random());
        point.classCode = static_cast<uint8_t>(random() % 4 ? 2 : random() % 256);
    }
    store.addCell(0, 0, points);
    store.updateStatistics();
    return store.bytes();
}

EditedStore::Journal EditedStore::open(const std::string& path)
{
    Journal journal;
    const Status status = EditJournal::open(path, journal);
    EXPECT_TRUE(status) << status.message();
    return journal;
}

namespace {

template <class Before>
Status record(EditRecorder& recorder, const std::vector<EditedStore::Change>& changes, Before before,
              uint64_t& number)
{
    EditRuns runs(recorder);
    for (const EditedStore::Change& change : changes)
        runs.add(change.point, 1, before(change.point), change.value);
    const Status status = runs.finish();
    return status ? recorder.commit(number) : status;
}

} // namespace

Status EditedStore::hide(const Journal& journal, const std::string& path, const std::vector<Change>& changes,
                         uint64_t& number, bool isApplied, int64_t time)
{
    EditRecorder recorder(*journal);
    EditDescription edit;
    edit.time = time;
    edit.author = "anna";
    edit.operation = R"({"op":"cull"})";
    if (Status status = recorder.begin(edit); !status) return status;
    const std::vector<uint8_t> store = readFile(path); // not earlier: `begin` may finish an older edit
    const auto before = [&](uint64_t point) {
        return static_cast<uint8_t>(store[kStart + point * 36 + 15] & 0x0F);
    };
    Status status = record(recorder, changes, before, number);
    uint64_t points = 0;
    if (status && isApplied) status = recorder.apply(nullptr, points);
    return status;
}

Status EditedStore::classify(const Journal& journal, const std::vector<uint8_t>& current,
                             const std::vector<Change>& changes, uint64_t& number)
{
    EditRecorder recorder(*journal);
    EditDescription edit;
    edit.field = PointRecord::kClass;
    edit.mask = 0xFF;
    edit.deferred = true;
    edit.author = "bernd";
    edit.operation = R"({"op":"classify"})";
    if (Status status = recorder.begin(edit); !status) return status;
    return record(
        recorder, changes, [&](uint64_t point) { return current[point]; }, number);
}

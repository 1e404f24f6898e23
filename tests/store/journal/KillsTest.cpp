// Programs that edit a store are killed at any moment. After the next one has opened its journal, store and
// journal are as before the operation that was broken off, or as behind it, byte for byte.

#include "tests/support/EditedStore.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/EditHistory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <random>

#include <sys/wait.h>
#include <unistd.h>

using namespace VelBrx;

namespace {

using Bytes = std::vector<uint8_t>;

enum Operation
{
    HIDE,
    CLASSIFY,
    SAVE,
    UNDO,
    REDO,
    FORGET,
    RECOVER,
    OPERATIONS
};
const char* const kNames[] = {"hide", "classify", "save", "undo", "redo", "forget", "recovery"};

uint64_t setting(const char* name, uint64_t otherwise)
{
    const char* const text = std::getenv(name); // script/torture
    return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

/// A change of hidden bits or classes: consecutive points here and there.
struct Change
{
    struct Run
    {
        uint32_t first;
        uint32_t count;
    };
    uint64_t parent = 0;
    bool ofClasses = false;
    uint8_t after = 0;
    std::vector<Run> runs;
    Bytes before; ///< of all points, in their order
};

/// What a store and its journal must be, without the journal's code.
class Model
{
public:
    explicit Model(Bytes bytes, uint32_t points) : _bytes(std::move(bytes)), _classes(points)
    {
        for (uint32_t point = 0; point < points; ++point)
            _classes[point] = _bytes[place(point, 16)];
    }

    uint64_t state = 0;     ///< the change that led here
    uint64_t entries = 0;   ///< of the journal, ever
    uint64_t forgotten = 0; ///< the last entry that is gone
    std::map<uint64_t, Change> changes;

    const Bytes& bytes() const { return _bytes; }

    uint8_t valueOf(const Change& change, uint32_t point) const
    {
        return change.ofClasses ? _classes[point] : _bytes[place(point, 15)] & 0x0F;
    }

    void set(const Change& change, bool forward)
    {
        size_t i = 0;
        for (const Change::Run& run : change.runs)
            for (uint32_t point = run.first; point < run.first + run.count; ++point, ++i) {
                const uint8_t value = forward ? change.after : change.before[i];
                uint8_t& flags = _bytes[place(point, 15)];
                if (change.ofClasses)
                    _classes[point] = value;
                else
                    flags = static_cast<uint8_t>((flags & 0xF0) | value);
            }
    }

    void save()
    {
        for (uint32_t point = 0; point < _classes.size(); ++point)
            _bytes[place(point, 16)] = _classes[point];
    }

    bool isSaved() const
    {
        for (uint32_t point = 0; point < _classes.size(); ++point)
            if (_bytes[place(point, 16)] != _classes[point]) return false;
        return true;
    }

private:
    static size_t place(uint32_t point, size_t byte)
    {
        return EditedStore::kStart + size_t{point} * 36 + byte;
    }

    Bytes _bytes;
    Bytes _classes; ///< with what is not saved
};

class Kills : public testing::Test
{
protected:
    void run(uint32_t points, uint64_t kills)
    {
        _points = points;
        _kills = kills;
        _store = folder.write("store.brx", EditedStore::bytes(points));
        Model model(readFile(_store), points);
        while (_killed < _kills) {
            const Operation operation = choose(model);
            Model after = plan(model, operation);
            if (const bool wasKilled = breakOff(operation, model, after); wasKilled && _random() % 2)
                breakOff(RECOVER, model, after);
            ASSERT_NO_FATAL_FAILURE(expectEither(operation, model, after));
        }
        tell();
    }

    const TempFolder folder;

private:
    struct Tally
    {
        uint64_t kills = 0;
        uint64_t before = 0;
        uint64_t after = 0;
        double seconds = 0.001; ///< until about half of it is done

        void adapt(bool wasLate)
        {
            constexpr double kStep = 1.3;
            seconds = std::clamp(wasLate ? seconds / kStep : seconds * kStep, 2e-5, 10.0);
        }
    };

    Operation choose(const Model& model)
    {
        for (;;) {
            const auto operation = static_cast<Operation>(_random() % OPERATIONS);
            if (operation == UNDO && (model.state == 0 || model.state <= model.forgotten)) continue;
            if (operation == REDO && redoOf(model) == 0) continue;
            if (operation == SAVE && model.isSaved()) continue;
            if (operation == FORGET && _random() % 3) continue; // else little is left to undo
            if (operation != RECOVER) return operation;
        }
    }

    /// The newest change that was made on the present state and undone; 0 where there is none.
    static uint64_t redoOf(const Model& model)
    {
        for (auto change = model.changes.rbegin(); change != model.changes.rend(); ++change)
            if (change->second.parent == model.state && change->first > model.forgotten) return change->first;
        return 0;
    }

    /// What the operation makes of store and journal.
    Model plan(const Model& model, Operation operation)
    {
        Model after = model;
        if (operation == HIDE || operation == CLASSIFY) {
            Change change = randomChange(model, operation == CLASSIFY);
            after.set(change, true);
            after.state = model.entries + 1;
            after.changes[after.state] = std::move(change);
        }
        if (operation == SAVE) after.save();
        if (operation == UNDO) {
            after.set(after.changes.at(model.state), false);
            after.state = after.changes.at(model.state).parent;
        }
        if (operation == REDO) {
            after.state = redoOf(model);
            after.set(after.changes.at(after.state), true);
        }
        after.entries += operation != FORGET;
        return after;
    }

    Change randomChange(const Model& model, bool ofClasses)
    {
        Change change;
        change.parent = model.state;
        change.ofClasses = ofClasses;
        change.after = static_cast<uint8_t>(ofClasses ? _random() : _random() % 16);
        const uint32_t longest = 1 + static_cast<uint32_t>(_random() % (_points / 50));
        for (uint32_t point = static_cast<uint32_t>(_random() % _points); point < _points;) {
            const uint32_t count = std::min<uint32_t>(_points - point, 1 + _random() % longest);
            change.runs.push_back({point, count});
            for (const uint32_t end = point + count; point < end; ++point)
                change.before.push_back(model.valueOf(change, point));
            point += 1 + static_cast<uint32_t>(_random() % (_points / 10));
        }
        return change;
    }

    /// Begins an operation in another process and kills it. False where it ended before.
    bool breakOff(Operation operation, const Model& before, const Model& after)
    {
        int begun[2];
        if (pipe(begun) != 0) return false;
        const pid_t child = fork();
        if (child == 0) {
            const Status status = carryOut(operation, before, after, begun[1]);
            if (!status) std::cerr << kNames[operation] << ": " << status.message() << std::endl;
            _exit(status ? 0 : 1);
        }
        close(begun[1]);
        char byte = 0;
        EXPECT_LE(read(begun[0], &byte, 1), 1);
        close(begun[0]);
        Tally& tally = _tallies[operation];
        usleep(static_cast<useconds_t>(_random() % (1 + static_cast<uint64_t>(tally.seconds * 2e6))));
        kill(child, SIGKILL);
        int how = 0;
        waitpid(child, &how, 0);
        const bool wasKilled = WIFSIGNALED(how);
        EXPECT_TRUE(wasKilled || WEXITSTATUS(how) == 0) << kNames[operation];
        _killed += wasKilled;
        tally.kills += wasKilled;
        if (operation == RECOVER) tally.adapt(!wasKilled);
        return wasKilled;
    }

    Status carryOut(Operation operation, const Model& before, const Model& after, int begun) const
    {
        const auto begin = [begun] { (void)!write(begun, "b", 1); };
        if (operation == RECOVER || operation == FORGET) begin();
        uint64_t number = 0;
        if (operation == FORGET) return forgetEdits(_store, INT64_MAX, number);
        EditedStore::Journal journal;
        if (Status status = EditJournal::open(_store, journal); !status) return status;
        if (operation == RECOVER) return {};
        begin();
        if (operation == SAVE) return journal->save("", number);
        if (operation == UNDO || operation == REDO) return journal->moveTo(after.state, "", nullptr, number);
        return record(*journal, before, after.changes.at(after.state));
    }

    static Status record(EditJournal& journal, const Model& model, const Change& change)
    {
        EditRecorder recorder(journal);
        EditDescription edit;
        edit.field = change.ofClasses ? PointRecord::kClass : PointRecord::kFlags;
        edit.mask = change.ofClasses ? 0xFF : PointRecord::kHiddenBits;
        edit.deferred = change.ofClasses;
        if (Status status = recorder.begin(edit); !status) return status;
        EditRuns runs(recorder);
        for (const Change::Run& run : change.runs)
            for (uint32_t point = run.first; point < run.first + run.count; ++point)
                runs.add(point, 1, model.valueOf(change, point), change.after);
        uint64_t number = 0;
        uint64_t points = 0;
        Status status = runs.finish();
        if (status) status = recorder.commit(number);
        return status ? recorder.apply(nullptr, points) : status;
    }

    /// Opens the journal; takes the state that it leads to for the present one.
    void expectEither(Operation operation, Model& model, Model& after)
    {
        const Bytes journalBefore = _journalBytes;
        EditedStore::Journal journal = EditedStore::open(_store);
        ASSERT_TRUE(journal);
        const uint64_t state = journal->state();
        journal.reset();
        EditHistory history;
        ASSERT_TRUE(readEditHistory(_store, history));
        const uint64_t entries = history.forgotten + history.entries.size();
        const bool isAfter =
            operation == FORGET ? history.forgotten > model.forgotten : entries == after.entries;
        Tally& tally = _tallies[operation];
        ++(isAfter ? tally.after : tally.before);
        tally.adapt(isAfter);
        if (isAfter) model = std::move(after);
        if (operation == FORGET) model.forgotten = history.forgotten;
        ASSERT_EQ(entries, model.entries) << kNames[operation];
        ASSERT_EQ(state, model.state) << kNames[operation];
        const Bytes bytes = readFile(_store);
        ASSERT_TRUE(bytes.size() == model.bytes().size() &&
                    std::memcmp(bytes.data(), model.bytes().data(), bytes.size()) == 0)
            << kNames[operation] << (isAfter ? ", done" : ", not begun");
        _journalBytes = history.exists ? readFile(journalPath(_store)) : Bytes();
        if (operation != FORGET) {
            ASSERT_GE(_journalBytes.size(), journalBefore.size());
            ASSERT_TRUE(std::equal(journalBefore.begin(), journalBefore.end(), _journalBytes.begin()))
                << "what is written down stays";
        }
        if (++_rounds % (_points > 100000 ? 20 : 1) == 0) {
            ASSERT_EQ(verifyEdits(_store), std::vector<std::string>());
        }
    }

    void tell() const
    {
        std::cout << _points << " points, seed " << _seed << ": " << _killed << " kills in " << _rounds
                  << " operations\n";
        for (const auto& [operation, tally] : _tallies)
            std::cout << "  " << kNames[operation] << ": " << tally.kills << " kills"
                      << (operation == RECOVER ? std::string()
                                               : ", then " + std::to_string(tally.before) + " as before, " +
                                                     std::to_string(tally.after) + " done")
                      << '\n';
    }

    const uint64_t _seed = setting("VELBRX_TORTURE_SEED", std::random_device()());
    std::mt19937 _random{static_cast<uint32_t>(_seed)};
    uint32_t _points = 0;
    uint64_t _kills = 0;
    uint64_t _killed = 0;
    uint64_t _rounds = 0;
    std::string _store;
    Bytes _journalBytes;
    std::map<Operation, Tally> _tallies;
};

} // namespace

TEST_F(Kills, LeaveEachEditWholeOrNotBegunWhateverIsBrokenOff)
{
    run(3000, setting("VELBRX_TORTURE_KILLS", 60));
}

TEST_F(Kills, LeaveEachEditOfALargeStoreWholeOrNotBegun)
{
    const uint64_t kills = setting("VELBRX_TORTURE_KILLS", 0);
    if (kills == 0) GTEST_SKIP() << "script/torture does it";
    run(static_cast<uint32_t>(setting("VELBRX_TORTURE_POINTS", 10000000)), kills);
}

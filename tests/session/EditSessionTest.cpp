#include <VelOsgDBBrx/EditSession.h>

#include "edit/EditReplay.h"
#include "edit/StoreEdit.h"
#include "loading/PointAttributes.h"
#include "loading/UnwrittenClasses.h"
#include "tests/support/CullScene.h"
#include "tests/support/DocsPage.h"
#include "tests/support/NoRoom.h"
#include "tests/support/OtherEditor.h"
#include "tests/support/ReadFile.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <thread>

using namespace VelOsgDBBrx;

namespace {

/// Three stores that stand about the world's origin: as they are, scaled, and turned. A session edits them.
class EditSessionStory : public testing::Test
{
protected:
    explicit EditSessionStory(int points = 6000)
    {
        for (unsigned i = 0; i < 3; ++i)
            writeMarkedStore(folder, points, i + 1, nameOf(i));
        open();
    }

    void TearDown() override
    {
        EXPECT_EQ(problems(), std::vector<std::string>());
        forgetClasses();
    }

    /// Classes in memory end as with the process.
    static void forgetClasses()
    {
        for (const UnwrittenClasses::Cell& cell : UnwrittenClasses::instance().cells())
            UnwrittenClasses::instance().forget(cell.place->identifier);
    }

    static std::string nameOf(size_t store)
    {
        return std::string(1, static_cast<char>('a' + store)) + ".brx";
    }

    void open(const std::string& author = "anna")
    {
        close();
        const osg::Matrixd places[] = {osg::Matrixd::translate(60, 0, 0),
                                       osg::Matrixd::scale(0.5, 0.5, 0.5) * osg::Matrixd::translate(-9, 4, 0),
                                       osg::Matrixd::rotate(0.7, osg::Vec3d(1, 2, 3))};
        session = std::make_unique<EditSession>(author);
        for (size_t i = 0; i < 3; ++i) {
            stores.push_back(std::make_unique<LoadedStore>(folder.file(nameOf(i))));
            osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform(places[i]);
            place->addChild(stores.back()->cloud);
            scene->addChild(place);
            const VelBrx::Status added = session->addCloud(*stores.back()->octree(), notes[i]);
            EXPECT_TRUE(added) << added.message();
            for (CellData* cell : allCells(*stores.back()->octree()))
                if (cell->record.level != 1)
                    leaves.push_back(PCDataManager::getInstance()->acquireNodeOrCreate(cell));
        }
    }

    void close()
    {
        session.reset();
        leaves.clear();
        scene->removeChildren(0, scene->getNumChildren());
        stores.clear();
    }

    /// Waits for an operation that was started.
    EditOutcome done(bool started)
    {
        EXPECT_TRUE(started);
        const EditOutcome outcome = session->wait();
        EXPECT_TRUE(outcome.ok) << outcome.message;
        return outcome;
    }

    EditOutcome refused(bool started)
    {
        EXPECT_TRUE(started);
        const EditOutcome outcome = session->wait();
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(outcome.points, 0u);
        return outcome;
    }

    static PointSelection inSphere(const osg::Vec3d& center, double radius)
    {
        PointSelection selection;
        selection.place = SpherePlace{center, radius};
        return selection;
    }

    Bytes bytesOf(size_t store) const { return readFile(folder.file(nameOf(store))); }

    /// All that can be seen of a store: its bytes, with the classes that are not saved.
    Bytes seenOf(size_t store) const
    {
        LasRecords records(bytesOf(store));
        for (CellData* cell : allCells(*stores[store]->octree())) {
            const ClassesPtr classes = UnwrittenClasses::instance().current(cell->identifier);
            size_t place = 0;
            for (const VelBrx::Segment& segment : cell->record.segments)
                for (int64_t i = 0; classes && i < segment.count; ++i)
                    records.classOf(static_cast<size_t>(segment.first + i)) = (*classes)[place++];
        }
        return records.bytes();
    }

    std::vector<Bytes> state() const { return {seenOf(0), seenOf(1), seenOf(2)}; }

    /// Whether loaded cells show what the records say, and the journals fit the stores.
    std::vector<std::string> problems() const
    {
        std::vector<std::string> found;
        for (size_t i = 0; i < stores.size(); ++i) {
            for (const std::string& line : VelBrx::verifyEdits(stores[i]->path))
                found.push_back(line);
            const LasRecords records(seenOf(i));
            for (CellData* cell : allCells(*stores[i]->octree()))
                if (const auto leaf = PCDataManager::getInstance()->acquireNode(cell->identifier))
                    if (!shows(*leaf, records))
                        found.push_back(stores[i]->path + ": a loaded cell shows something else");
        }
        return found;
    }

    static bool shows(const osg::Node& leaf, const LasRecords& records)
    {
        const osg::Geometry& geometry = *leaf.asGeode()->getDrawable(0)->asGeometry();
        const auto& attribute = dynamic_cast<const osg::IntArray&>(*geometry.getVertexAttribArray(12));
        const auto& indices = dynamic_cast<const osg::Vec2iArray&>(*geometry.getUserData());
        bool same = true;
        for (size_t i = 0; i < indices.size(); ++i) {
            const auto point = static_cast<size_t>(indices[i].x());
            same = same && PointAttributes::classOf(attribute[i]) == records.classOf(point) &&
                   (attribute[i] >> PointAttributes::kHiddenShift & kHiddenBits) ==
                       (records.flags(point) & kHiddenBits);
        }
        return same;
    }

    std::vector<std::string> operations() const
    {
        std::vector<std::string> names;
        for (const EditStep& step : session->steps())
            names.push_back(step.operation + (step.isDone ? "" : " undone"));
        return names;
    }

    TempFolder folder;
    const osg::ref_ptr<osg::Group> scene = new osg::Group;
    std::vector<std::unique_ptr<LoadedStore>> stores;
    std::vector<osg::ref_ptr<osg::Node>> leaves; ///< keeps cells loaded
    std::string notes[3];                        ///< of `addCloud`
    std::unique_ptr<EditSession> session;        ///< ends before the stores
};

/// Points enough that an edit can be met while it looks for them.
class LargeEditSessionStory : public EditSessionStory
{
protected:
    LargeEditSessionStory() : EditSessionStory(40000) {}
};

} // namespace

TEST_F(EditSessionStory, AnEditOfCloudsThatStandApartIsOneStep)
{
    const osg::Vec3d center(-4, 3, 2);
    constexpr double kRadius = 21;
    std::vector<Bytes> expected;
    uint64_t points = 0;
    for (const auto& store : stores) {
        LasRecords records(store->path);
        const osg::Matrixd& place =
            static_cast<osg::MatrixTransform*>(store->cloud->getParent(0))->getMatrix();
        for (size_t i = 0; i < records.size(); ++i) {
            const osg::Vec3d world = (records.position(i) - records.offset()) * place;
            if ((world - center).length() > kRadius || (records.flags(i) & kHiddenBits)) continue;
            records.flags(i) |= kCulledBit;
            ++points;
        }
        expected.push_back(records.bytes());
    }
    const std::vector<Bytes> before = state();
    const EditOutcome hidden = done(session->hide(inSphere(center, kRadius)));
    EXPECT_EQ(hidden.operation, "hide");
    EXPECT_EQ(hidden.points, points);
    EXPECT_TRUE(state() == expected);
    ASSERT_EQ(session->steps().size(), 1u);
    EXPECT_EQ(session->steps()[0].points, points);
    EXPECT_EQ(session->steps()[0].author, "anna");
    EXPECT_EQ(problems(), std::vector<std::string>());

    const EditOutcome undone = done(session->undo());
    EXPECT_EQ(undone.operation, "undo hide");
    EXPECT_EQ(undone.undone, "hide");
    EXPECT_EQ(undone.points, points);
    EXPECT_TRUE(state() == before);
    EXPECT_EQ(problems(), std::vector<std::string>());
    EXPECT_EQ(done(session->undo()).message, "there is nothing to undo");
    EXPECT_EQ(done(session->redo()).redone, "hide");
    EXPECT_TRUE(state() == expected);
    EXPECT_EQ(done(session->redo()).message, "there is nothing to redo");

    // What is brought back can be hidden again by undo; two stores have it.
    const EditOutcome shown = done(session->show(inSphere({-14, 4, 0}, 9)));
    EXPECT_GT(shown.points, 0u);
    std::vector<std::string> changed;
    for (size_t i = 0; i < stores.size(); ++i)
        if (seenOf(i) != expected[i]) changed.push_back(stores[i]->path);
    EXPECT_EQ(changed.size(), 2u);
    EXPECT_EQ(session->steps().back().stores, changed);
    done(session->undo());
    EXPECT_TRUE(state() == expected);
    EXPECT_EQ(done(session->hide(inSphere({1e4, 0, 0}, 5))).points, 0u);
    EXPECT_EQ(done(session->redo()).redone, "show") << "an edit of nothing is none";

    // Edits of different stores are done again in their order.
    done(session->hide(inSphere({112, 0, 0}, 20)));
    const std::vector<Bytes> first = state();
    done(session->hide(inSphere({-60, 0, 0}, 20)));
    EXPECT_TRUE(seenOf(0) == first[0] && seenOf(1) == first[1]);
    done(session->undo());
    done(session->undo());
    done(session->redo());
    EXPECT_TRUE(state() == first);

    Classification change;
    change.toClass = 6;
    done(session->classify(PointSelection(), change));
    const Bytes unsaved = bytesOf(0);
    session->removeCloud(*stores[0]->octree());
    EXPECT_EQ(session->unsavedPoints().size(), 2u);
    done(session->save());
    EXPECT_TRUE(bytesOf(0) == unsaved) << "no longer of the session";
    stores[2].reset();
    leaves.clear();
    scene->removeChild(2);
    done(session->reset());
    EXPECT_TRUE(bytesOf(0) == unsaved);
    EXPECT_FALSE(bytesOf(1) == before[1]);
    stores.resize(2);
}

TEST_F(EditSessionStory, EveryStateIsReachedAgainInThisSessionAndTheNext)
{
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto any = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    std::map<int64_t, std::vector<Bytes>> kept = {{0, state()}}; // by the time of the step that led there
    std::vector<int64_t> line = {0};                             // the steps that are in effect
    size_t undone = 0;                                           // of them, at the end
    for (int round = 0; round < 40; ++round) {
        if (round % 10 == 9) open(round == 19 ? "bernd" : "anna");
        const int what = static_cast<int>(random() % 9);
        const PointSelection place = inSphere({any(-60, 130), any(-40, 40), any(-40, 40)}, any(5, 30));
        if (what < 4) {
            Classification change;
            change.toClass = static_cast<int>(random() % 5);
            const uint64_t points = done(what == 0   ? session->hide(place)
                                         : what == 1 ? session->show(place)
                                         : what == 2 ? session->classify(place, change)
                                                     : session->reset())
                                        .points;
            if (points == 0) continue;
            line.resize(line.size() - std::exchange(undone, 0));
            line.push_back(session->steps().back().time);
            kept[line.back()] = state();
        } else if (what == 8) {
            done(session->save());
            EXPECT_TRUE(session->unsavedPoints().empty());
        } else {
            const bool isUndo = what < 7;
            const EditOutcome outcome = done(isUndo ? session->undo() : session->redo());
            const bool isNone = isUndo ? undone + 1 == line.size() : undone == 0;
            ASSERT_EQ(isNone, outcome.undone.empty() && outcome.redone.empty()) << outcome.message;
            if (!isNone) undone += isUndo ? 1 : -1;
        }
        ASSERT_TRUE(state() == kept[line[line.size() - 1 - undone]]) << "round " << round;
    }
    EXPECT_EQ(session->steps().size() + 1, kept.size());
    EXPECT_EQ(problems(), std::vector<std::string>());
    for (int i = 0; i < 12; ++i) {
        const auto step = std::next(kept.begin(), static_cast<ptrdiff_t>(random() % kept.size()));
        done(session->stepTo(step->first));
        ASSERT_TRUE(state() == step->second) << "also a step of another branch";
    }
    while (!done(session->undo()).undone.empty())
        ;
    EXPECT_TRUE(state() == kept[0]);
}

TEST_F(LargeEditSessionStory, WhatIsCancelledIsTakenBackWholeAndIsNoStep)
{
    done(session->hide(inSphere({0, 0, 0}, 30)));
    const int64_t first = session->steps().back().time;
    done(session->hide(inSphere({9, 0, 0}, 40)));
    done(session->undo());
    const std::vector<Bytes> before = state();
    const auto journalSize = [&] {
        uint64_t size = 0;
        for (const auto& store : stores)
            size += std::filesystem::file_size(VelBrx::journalPath(store->path));
        return size;
    };
    size_t broken = 0;    // cancelled before anything was done
    size_t takenBack = 0; // cancelled when a store was done
    const auto cancelAt = [&](bool started, double progress) {
        EXPECT_TRUE(started);
        const uint64_t size = journalSize();
        while (!session->hasOutcome() && session->progress() < progress)
            std::this_thread::yield();
        session->cancel();
        const EditOutcome outcome = session->wait();
        EXPECT_TRUE(outcome.ok) << outcome.message;
        EXPECT_NE(outcome.isCancelled, outcome.points > 0);
        if (!outcome.isCancelled) return true;
        EXPECT_TRUE(state() == before) << outcome.operation << " at " << progress;
        (journalSize() > size ? takenBack : broken) += 1;
        return false;
    };
    size_t added = 0;
    for (double round = 0; round < 1 || (broken == 0 && round < 9); round += 0.12) {
        const double progress = std::fmod(round, 1);
        if (cancelAt(session->hide(PointSelection()), progress)) {
            ++added;
            done(session->undo());
        }
        if (cancelAt(session->reset(), progress)) {
            ++added;
            done(session->undo());
        }
        if (cancelAt(session->undo(), progress)) done(session->redo());
        if (cancelAt(session->redo(), progress)) done(session->undo());
        if (cancelAt(session->stepTo(0), progress)) done(session->stepTo(first));
        ASSERT_TRUE(state() == before) << "at " << progress;
        EXPECT_EQ(session->steps().size(), 2 + added);
    }
    EXPECT_GT(broken, 0u);
    EXPECT_GT(takenBack, 0u);
    open();
    EXPECT_EQ(session->steps().size(), 2 + added) << "nor in the next session";
    EXPECT_GT(done(session->redo()).points, 0u) << "what can be done again stays";
    done(session->undo());
    EXPECT_TRUE(state() == before);
}

TEST_F(EditSessionStory, AnEditThatOneStoreRefusesChangesNoStore)
{
    const std::vector<Bytes> before = state();
    {
        const OtherEditor other(stores[2]->path);
        ASSERT_TRUE(other.edits());
        const EditOutcome busy = refused(session->hide(PointSelection()));
        EXPECT_TRUE(busy.isBusyElsewhere);
        EXPECT_NE(busy.message.find("c.brx: is being edited by"), std::string::npos) << busy.message;
        EXPECT_TRUE(state() == before);
        EXPECT_GT(done(session->hide(inSphere({112, 0, 0}, 20))).points, 0u) << "of another store";
        done(session->undo());
        ASSERT_TRUE(session->editWithoutJournal());
        const EditOutcome hidden = done(session->hide(PointSelection()));
        EXPECT_FALSE(std::filesystem::exists(VelBrx::journalPath(stores[2]->path)));
        EXPECT_TRUE(std::filesystem::exists(VelBrx::journalPath(stores[1]->path)))
            << "the others keep theirs";
        EXPECT_EQ(done(session->undo()).points, hidden.points);
        EXPECT_TRUE(state() == before);
    }
    open();
    std::filesystem::create_directory(VelBrx::journalPath(stores[2]->path)); // nothing can be written there
    EXPECT_TRUE(refused(session->reset()).isNotJournalled);
    EXPECT_TRUE(state() == before);
    ASSERT_TRUE(session->editWithoutJournal());
    Classification change;
    change.toClass = 9;
    EXPECT_GT(done(session->classify(PointSelection(), change)).points, 0u);
    done(session->save());
    EXPECT_EQ(LasRecords(stores[2]->path).classOf(5), 9);
    done(session->undo());
    EXPECT_TRUE(state() == before);
    done(session->save());
    std::filesystem::remove(VelBrx::journalPath(stores[2]->path));
    open();
    const size_t steps = session->steps().size();
    EXPECT_FALSE(refused(session->hide(inSphere({0, 0, 0}, -1))).message.empty());

    // The journal of the second store is longer than that of the first, and finds no room.
    EditSession second("clara");
    std::string note;
    ASSERT_TRUE(second.addCloud(*stores[1]->octree(), note));
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(second.hide(inSphere({-9, 4, 0}, 5.0 + i)));
        EXPECT_GT(second.wait().points, 0u);
    }
    const std::vector<Bytes> edited = state();
    {
        const NoRoom noRoom(std::filesystem::file_size(VelBrx::journalPath(stores[1]->path)));
        const EditOutcome full = refused(session->hide(PointSelection()));
        EXPECT_TRUE(full.isNotJournalled);
        EXPECT_NE(full.message.find("b.brx.edits"), std::string::npos) << full.message;
        EXPECT_TRUE(state() == edited) << "the first store was done and is taken back";
    }
    EXPECT_EQ(session->steps().size(), steps + 8);
    EXPECT_EQ(done(session->undo()).undone, "hide") << "that of the other session";

    // The bytes of the third store find no room, from its middle on.
    const uint64_t middle = std::filesystem::file_size(stores[2]->path) / 2;
    appendHole(stores[2]->path);
    open();
    const std::vector<Bytes> holed = state();
    {
        const NoRoom noRoom(middle);
        refused(session->hide(PointSelection()));
        EXPECT_TRUE(state() == holed);
    }
    EXPECT_GT(done(session->hide(PointSelection())).points, 0u);
    done(session->undo());

    done(session->hide(inSphere({112, 0, 0}, 20))); // of the first store, to whose journal it stays
    const std::vector<Bytes> last = state();
    {
        const NoRoom noRoom(0);
        refused(session->hide(PointSelection()));
    }
    ASSERT_TRUE(session->editWithoutJournal());
    const Bytes journal = readFile(VelBrx::journalPath(stores[0]->path));
    done(session->undo());
    done(session->redo());
    EXPECT_GT(done(session->hide(PointSelection())).points, 0u);
    done(session->undo());
    EXPECT_TRUE(state() == last);
    EXPECT_TRUE(readFile(VelBrx::journalPath(stores[0]->path)) == journal);
    open();

    std::filesystem::rename(stores[2]->path, folder.file("away.brx"));
    std::filesystem::copy(folder.file("away.brx"), stores[2]->path);
    EXPECT_NE(refused(session->hide(PointSelection())).message.find("is no longer the file"),
              std::string::npos);
    std::filesystem::rename(folder.file("away.brx"), stores[2]->path);
    EXPECT_GT(done(session->hide(inSphere({-60, 0, 0}, 20))).points, 0u);

    // Something else changes a point of the second last step: all of the way there is taken back.
    const std::vector<Bytes> good = state();
    done(session->hide(PointSelection()));
    size_t point = 0;
    LasRecords changed(stores[2]->path);
    while (changed.flags(point) == LasRecords(holed[2]).flags(point) ||
           changed.flags(point) != LasRecords(good[2]).flags(point))
        ++point;
    const auto pokeFlags = [&](uint8_t flags) {
        std::fstream file(stores[2]->path, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(stores[2]->octree()->pointDataStart + static_cast<int64_t>(point) * 36 + 15);
        file.put(static_cast<char>(flags));
    };
    pokeFlags(changed.flags(point) ^ 3);
    const std::vector<Bytes> poked = state();
    EXPECT_NE(refused(session->undoAll()).message.find("was changed by something else"), std::string::npos);
    EXPECT_TRUE(state() == poked);
    pokeFlags(changed.flags(point));
    done(session->undo());
    EXPECT_TRUE(state() == good);
}

TEST_F(EditSessionStory, ClassesThatWereNotSavedAreThereAgainAndCanBeDropped)
{
    const std::vector<Bytes> before = state();
    Classification change;
    change.toClass = 6;
    const uint64_t points = done(session->classify(inSphere({0, 0, 0}, 30), change)).points;
    EXPECT_EQ(done(session->count(inSphere({0, 0, 0}, 30))).classes->before[6], points);
    const std::vector<Bytes> classified = state();
    EXPECT_EQ(done(session->classify(PointSelection(), {7, {6}, true})).points, points);
    EXPECT_FALSE(refused(session->classify(PointSelection(), {256, {}, true})).message.empty());
    EXPECT_TRUE(state() == classified);
    close();
    forgetClasses();
    open("bernd");
    EXPECT_NE(notes[1].find("b.brx: "), std::string::npos) << notes[1];
    EXPECT_NE(notes[1].find("classes that are not saved"), std::string::npos) << notes[1];
    EXPECT_TRUE(state() == classified);
    EXPECT_TRUE(bytesOf(1) == before[1]);
    EXPECT_TRUE(session->steps().back().isUnsaved);
    EXPECT_EQ(session->unsavedPoints().size(), 3u);
    EXPECT_EQ(done(session->dropUnsaved()).points, points);
    EXPECT_TRUE(state() == before);
    EXPECT_EQ(session->steps().size(), 2u);
    done(session->undo());
    EXPECT_TRUE(state() == classified);
    EXPECT_EQ(done(session->save()).points, points);
    EXPECT_TRUE(bytesOf(1) == classified[1]);
    done(session->undo());
    EXPECT_TRUE(state() == before) << "past the save";
    EXPECT_TRUE(bytesOf(1) == classified[1]);
    done(session->save());
    EXPECT_TRUE(bytesOf(1) == before[1]);

    // Somebody with a clock that is an hour ahead.
    OctreeInfo& octree = *stores[0]->octree();
    std::shared_ptr<VelBrx::EditJournal> journal;
    ASSERT_TRUE(EditJournalling::open(octree, journal));
    {
        VelBrx::EditRecorder recorder(*journal);
        VelBrx::EditDescription ahead;
        ahead.time = VelBrx::editTimeNow() + int64_t{3600} * 1000000;
        ASSERT_TRUE(recorder.begin(ahead));
        VelBrx::EditRuns runs(recorder);
        const auto flags = static_cast<uint8_t>(LasRecords(stores[0]->path).flags(7) & kHiddenBits);
        runs.add(7, 1, flags, flags ^ kCulledBit);
        ASSERT_TRUE(runs.finish());
        uint64_t number = 0;
        uint64_t changed = 0;
        ASSERT_TRUE(recorder.commit(number));
        EditReplay replay(octree);
        ASSERT_TRUE(recorder.apply(replay.visitor(), changed));
        replay.show();
    }
    const std::vector<Bytes> changed = state();
    done(session->hide(inSphere({0, 0, 0}, 30)));
    const std::vector<Bytes> hidden = state();
    done(session->undo());
    EXPECT_TRUE(state() == changed) << "the newest edit is that of this session";
    done(session->redo());
    EXPECT_TRUE(state() == hidden);
}

TEST_F(EditSessionStory, OwnStepsTakeTheirTurnAndOutcomesComeInOrder)
{
    std::vector<std::string> calls;
    const auto addOwn = [&](const std::string& name) {
        const bool added = session->addOwnStep(
            name, [&calls, name] { calls.push_back("undo " + name); },
            [&calls, name] { calls.push_back("redo " + name); });
        EXPECT_TRUE(added);
    };
    using Names = std::vector<std::string>;
    const std::vector<Bytes> before = state();
    addOwn("select");
    done(session->hide(inSphere({0, 0, 0}, 10)));
    const std::vector<Bytes> hidden = state();
    addOwn("segment");
    const EditOutcome undone = done(session->undo());
    EXPECT_TRUE(undone.isOwn);
    EXPECT_EQ(undone.operation, "undo segment");
    EXPECT_TRUE(state() == hidden);
    EXPECT_EQ(done(session->undo()).undone, "hide");
    EXPECT_EQ(done(session->undo()).undone, "select");
    EXPECT_EQ(done(session->undo()).message, "there is nothing to undo");
    EXPECT_EQ(calls, (Names{"undo segment", "undo select"}));
    for (const char* name : {"select", "hide", "segment", ""})
        EXPECT_EQ(done(session->redo()).redone, name);
    EXPECT_TRUE(state() == hidden);
    const std::vector<EditStep> steps = session->steps();
    ASSERT_EQ(steps.size(), 3u);
    calls.clear();
    done(session->stepTo(steps[0].time));
    EXPECT_EQ(calls, (Names{"undo segment"}));
    EXPECT_TRUE(state() == before);
    done(session->undoAll());
    done(session->stepTo(steps[2].time));
    EXPECT_EQ(calls, (Names{"undo segment", "undo select", "redo select", "redo segment"}));
    EXPECT_TRUE(state() == hidden);
    done(session->undo());
    done(session->undo());
    addOwn("line"); // a new branch
    EXPECT_EQ(done(session->redo()).message, "there is nothing to redo");
    EXPECT_EQ(operations().back(), "line");
    done(session->undo());
    done(session->hide(inSphere({0, 0, 0}, 10)));
    EXPECT_EQ(done(session->redo()).message, "there is nothing to redo");
    done(session->undo());

    // The callback starts the next operation itself.
    std::vector<std::string> outcomes;
    std::thread::id thread;
    session->setCallback([&, session = session.get()](const EditOutcome& outcome) {
        EXPECT_TRUE(outcomes.empty() || thread == std::this_thread::get_id());
        thread = std::this_thread::get_id();
        EXPECT_FALSE(session->isBusy());
        outcomes.push_back(outcome.operation);
        if (outcomes.size() == 1) session->hide(inSphere({0, 0, 0}, 20));
        if (outcomes.size() == 2) session->undo();
        if (outcomes.size() == 3) session->undoAll();
    });
    EXPECT_TRUE(session->reset());
    EXPECT_EQ(session->wait().operation, "undo all");
    EXPECT_FALSE(session->poll());
    EXPECT_EQ(outcomes, (Names{"reset", "hide", "undo hide", "undo all"}));
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_TRUE(state() == before);
    outcomes = {"", "", "", ""};
    EXPECT_TRUE(session->hide(inSphere({0, 0, 0}, 20)));
    session.reset();
    EXPECT_EQ(outcomes.back(), "hide") << "the end of a session waits";
}

TEST(HostPages, ShowCodeOfTheExamplesAndNameEveryHeader)
{
    namespace fs = std::filesystem;
    const fs::path root = VELBRX_SOURCE_DIR;
    std::string examples;
    for (const auto& folder : fs::directory_iterator(root / "examples"))
        examples += readText(folder.path() / "main.cpp");
    const TempFolder folder;
    const std::string all = folder.write("all.cpp", std::vector<uint8_t>(examples.begin(), examples.end()));
    for (const char* page :
         {"editing-session.md", "hosting/embedding.md", "hosting/picking.md", "hosting/threads.md"})
        EXPECT_EQ(blocksNotIn(all, root / "docs" / page), std::vector<std::string>()) << page;

    const std::string table = readText(root / "docs/hosting/README.md");
    for (const auto& header : fs::recursive_directory_iterator(root / "include")) {
        const std::string name = header.path().filename().string();
        if (header.path().extension() == ".h" && name != "Export.h") {
            EXPECT_NE(table.find("`" + name + "`"), std::string::npos) << name;
        }
    }
}

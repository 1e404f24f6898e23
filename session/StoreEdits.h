#pragma once

#include "category/ClassEdit.h"
#include "edit/CloudPlaces.h"
#include "edit/EditControl.h"
#include "edit/SelectionTest.h"
#include "session/JournalSteps.h"

#include <VelBrx/EditJournal.h>
#include <VelBrx/Status.h>
#include <VelOsgDBBrx/EditSession.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PointSelection.h>

#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

class SelectionAreas;
struct PointMark;
namespace VelOsgDBBrx {
struct CmdResult;
}

/// A cloud of a session.
struct SessionCloud
{
    osg::observer_ptr<OctreeInfo> octree;
    uint64_t firstState = 0; ///< of its store's journal when it was added
    bool isDrawn = true;
};

/// A store of a session's clouds while something is done with it.
struct SessionStore
{
    osg::ref_ptr<OctreeInfo> octree; ///< of one of the clouds that show it
    uint64_t firstState = 0;
};

/// The stores of the clouds that are open, each once.
std::vector<SessionStore> openStores(const std::vector<SessionCloud>& clouds);

/// Reads what the journal of a cloud's store has, whether it is open or not.
VelBrx::Status readHistory(OctreeInfo& octree, VelBrx::EditHistory& history);

/// Switches to a temporary journal where the store's own cannot be used, or could not a moment ago.
bool editWithoutJournal(OctreeInfo& octree, const std::string& author, bool wasRefused);

/// Points whose class is not saved, by the path of their store; without stores that have none.
std::map<std::string, uint64_t> unsavedPoints(const std::vector<SessionStore>& stores);
std::map<std::string, uint64_t> unsavedPoints(const std::vector<SessionCloud>& clouds);

/// By the path of their store and by class, what unsaved classes add to those of its records.
std::map<std::string, std::array<int64_t, 256>> unsavedDifference(const std::vector<SessionStore>& stores);

/// The steps of stores, in their order. A journal that cannot be read has none: whoever edits its store is
/// told.
JournalSteps readSteps(const std::vector<SessionStore>& stores);

/// One operation on the stores of a session's clouds, as one step: it is done in all of them or, where it
/// fails or is cancelled, in none. What came of it is in the outcome. Holds the clouds while it lives. One
/// thread.
class StoreEdits
{
public:
    /// Clouds that are closed are left out. `newestOwn`: the time of the host's newest own step, 0 where
    /// there is none.
    StoreEdits(const std::vector<SessionCloud>& clouds, std::string author, int64_t newestOwn,
               EditControl& control, VelOsgDBBrx::EditOutcome& outcome);

    /// Hides the visible points of a selection, or shows the hidden ones. `places`: of the clouds, at the
    /// call.
    void hide(const VelOsgDBBrx::PointSelection& selection, const CloudPlaces& places);
    void show(const VelOsgDBBrx::PointSelection& selection, const CloudPlaces& places);

    void count(const VelOsgDBBrx::PointSelection& selection, const CloudPlaces& places);
    void classify(const VelOsgDBBrx::PointSelection& selection, const CloudPlaces& places,
                  const VelOsgDBBrx::Classification& change);
    void save();
    void dropUnsaved();
    void reset();
    void undo();
    void redo();
    void undoAll();
    void stepTo(int64_t time);

    /// The stores that were left as they were because another program edits them or their journal cannot be
    /// written.
    const std::vector<osg::observer_ptr<OctreeInfo>>& refused() const { return _refused; }

    /// The steps of the stores as they are now.
    JournalSteps steps() const { return readSteps(_stores); }

private:
    struct Target
    {
        osg::ref_ptr<OctreeInfo> octree;
        std::unique_ptr<const PointTest> test;
        std::vector<CellData*> cells;
    };

    /// A cloud that is held.
    struct OpenCloud
    {
        osg::ref_ptr<OctreeInfo> octree;
        bool isDrawn;
    };

    static std::vector<OpenCloud> open(const std::vector<SessionCloud>& clouds);

    struct Move
    {
        OctreeInfo* octree;
        uint64_t from; ///< where the store is before it
        uint64_t to;
    };

    /// What an edit did to a store; 0 where nothing changed.
    using EditStore = std::function<uint64_t(const Target&)>;

    VelBrx::EditDescription describe(const std::string& operation);
    bool checkStore(OctreeInfo& octree);
    bool checkStores(const std::vector<Target>& targets);
    void classify(const VelOsgDBBrx::PointSelection& selection, const CloudPlaces& places,
                  const ClassRule& rule, ClassEditOptions options);
    bool scan(SelectionAreas& areas, const CloudPlaces& places, SelectionTest::Hidden hidden);
    std::vector<osg::ref_ptr<OctreeInfo>> meant(const VelOsgDBBrx::PointSelection& selection) const;
    std::vector<Target> reach(const SelectionAreas& areas, const CloudPlaces& places,
                              SelectionTest::Hidden hidden) const;
    void mark(const VelOsgDBBrx::PointSelection& selection, const CloudPlaces& places, const PointMark& how,
              const std::string& op);
    void mark(const std::vector<Target>& targets, const PointMark& how, const std::string& operation);
    bool edit(const std::vector<Target>& targets, const EditStore& editStore);
    bool move(const std::vector<uint64_t>& states);
    VelBrx::Status move(Move& one, const VelBrx::EditDescription& description, uint64_t& points);
    void takeBack(const std::vector<Move>& done, const std::string& operation);
    void refuse(const std::string& message);
    void refuse(OctreeInfo& octree, const VelOsgDBBrx::CmdResult& result);
    bool hasFailed() const { return !_outcome.ok || _control.isCancelled(); }

    const std::string _author;
    EditControl& _control;
    VelOsgDBBrx::EditOutcome& _outcome;
    const std::vector<OpenCloud> _clouds;
    const std::vector<SessionStore> _stores;
    const JournalSteps _steps; ///< when the operation began, of `_stores`
    const int64_t _newestOwn;
    int64_t _time = 0; ///< of the newest entry or own step
    uint64_t _cellsUnreadable = 0;
    double _shareDone = 0; ///< of the progress, before cells are edited
    std::vector<osg::observer_ptr<OctreeInfo>> _refused;
};

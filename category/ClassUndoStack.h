#pragma once

#include "category/ClassEdit.h"

#include <VelThreads/Mutex.h>

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

/// What an edit did to one point cloud.
struct CloudEdit
{
    std::string uid;    ///< under which its changes are reported
    std::string viewer; ///< name of the viewer that shows it
    ClassEditOutcome outcome;
};

/// The edits since the last save: what undo and reset go back to, and what has been modified. One thread
/// changes it; any thread may ask.
class ClassUndoStack
{
public:
    /// Keeps an edit, which was one step of the user, unless nothing changed.
    void add(std::vector<CloudEdit> edit);

    /// Takes the newest edit back; empty when there is none. Stores of which it could not be taken back stay
    /// for another try; so it is for `reset`.
    std::vector<CloudEdit> undo();

    /// Takes all edits back.
    std::vector<CloudEdit> reset();

    /// The current classes become the baseline of `reset`; marks the loaded cells that were modified.
    void save();

    /// Modified cells as they were at the last save and as they are, by their identifiers.
    using ModifiedCloud = std::map<std::string, EditedCell>;
    using Modified = std::map<std::string, ModifiedCloud>; ///< by uid of the point cloud

    Modified modified() const;

private:
    struct CloudChange
    {
        std::string uid;
        std::string viewer;
        ClassUndo undo;
    };
    using Step = std::vector<CloudChange>;

    void note(const std::string& uid, const std::vector<EditedCell>& cells);
    void forgetAll();

    std::deque<Step> _history; ///< newest last; touched by the one thread only

    mutable VelThreads::Mutex _mutex;
    Modified _modified VEL_GUARDED_BY(_mutex);
};

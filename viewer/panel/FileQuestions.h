#pragma once

#include "viewer/files/CloudFiles.h"
#include "viewer/operation/Operation.h"
#include "viewer/panel/FileDialog.h"
#include "viewer/settings/Settings.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Asks people which files to open and what to write, and whether unsaved classes are to be saved before.
/// What is being opened, built and written has a bar in the window, with a button that cancels it.
///
/// Threads: the viewer's.
class FileQuestions
{
public:
    /// `files` and `settings` outlive it, as does what the stage refers to.
    FileQuestions(const Stage& stage, CloudFiles& files, Settings& settings);

    void askToOpen();

    /// Asks for a name and writes what the store has. Unknown clouds are ignored.
    void askToExport(uint64_t cloud);

    /// Asks what becomes of unsaved classes, where there are some. Unknown clouds are ignored.
    void askToClose(uint64_t cloud);

    /// Draws what is asked and how far files are. A part of `Gui`.
    void draw();

    /// Something is shown that moves by itself.
    bool isMoving() const { return _openDialog.isReading() || _exportDialog.isReading() || _then; }

private:
    using Action = std::function<void()>;

    /// A window with a button for each answer. Enter is the first one, Escape the last one.
    struct Question
    {
        std::string text;
        std::vector<std::pair<std::string, Action>> answers;
        bool begins = true;
    };

    void ask(const std::string& text, std::vector<std::pair<std::string, Action>> answers);
    void drawQuestion();
    void drawJobs();
    void drawJob(const JobQueue::State& job, const std::function<void(uint64_t)>& cancel);
    void saveFirst(uint64_t cloud, Action then);
    void goOnAfterSave();
    uint64_t unsavedIn(const Scene::Cloud& cloud) const;
    void chooseName(uint64_t cloud);
    void exportTo(std::string path);

    const Stage _stage;
    CloudFiles& _files;
    Settings& _settings;
    FileDialog _openDialog;
    FileDialog _exportDialog;
    uint64_t _exported = 0; ///< the cloud that `_exportDialog` asks about
    std::optional<Question> _question;
    Action _then;             ///< when `_saved` has been saved
    uint64_t _saved = 0;      ///< a cloud
    bool _saveBegins = false; ///< the save is asked for in this frame
};

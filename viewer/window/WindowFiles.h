#pragma once

#include "viewer/edit/ClassCounts.h"
#include "viewer/files/CloudFiles.h"
#include "viewer/gui/Gui.h"
#include "viewer/panel/CloudsSection.h"
#include "viewer/panel/FileQuestions.h"
#include "viewer/scene/Options.h"
#include "viewer/window/DroppedFiles.h"
#include "viewer/window/EditKeys.h"
#include "viewer/window/Views.h"

#include <osgGA/GUIEventHandler>
#include <osgViewer/Viewer>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// The files of a window: what the command line names is opened, keys ask for more, and people are told what
/// comes of it: in lines, in the window's title, and on stderr.
///
/// Threads: the viewer's.
class WindowFiles : public osgGA::GUIEventHandler, private FileStage
{
public:
    /// Begins to open the files of `options`. All else outlives it, as does what the stage refers to.
    WindowFiles(osgViewer::Viewer& viewer, Gui& gui, EditKeys& editKeys, const Stage& stage,
                const Views& views, ClassCounts& counts, Settings& settings, const Options& options);

    /// The panel's section.
    void drawSection() { _section.draw(); }

    /// Takes in what is ready, between frames; asks for frames while something moves. `isSettled`: the points
    /// of the picture are all there.
    void update(bool isSettled);

    /// Something is under way that `update` takes in when it is done.
    bool isBusy() const;

    /// Clouds are still to come.
    bool isOpening() const { return _files.isOpening(); }

    /// Which, for people: "opening tile.laz, 34 % and 12 more"; empty where none.
    const std::string& opening() const { return _opening; }

    /// Readable when files are dragged over the window, for `update`.
    int connection() const { return _dropped.connection(); }

    /// That the stores hide, as far as they are counted.
    uint64_t hiddenPoints() const { return _hidden; }

    /// Where names and colours of the classes are from; empty for the standard's.
    const std::string& classesFile() const { return _classesFile; }

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    using osgGA::GUIEventHandler::handle;
    void getUsage(osg::ApplicationUsage& usage) const override;

protected:
    ~WindowFiles() override = default;

private:
    using Clock = std::chrono::steady_clock;

    VelBrx::Status open(const std::string& file, const How& how, std::string& told) override;
    VelBrx::Status openAll(std::string& told) override;
    VelBrx::Status close(const Scene::Cloud& cloud) override;
    VelBrx::Status exportCloud(const Scene::Cloud& cloud, const std::string& file, bool replace,
                               std::string& told) override;
    void takeNews();
    void readClasses(const std::string& store);
    void countHidden(bool isSettled);
    void tellHidden();
    void tellReadErrors();
    void checkStores(Clock::time_point now);
    void updateTitle();
    std::string describeOpening() const;

    osgViewer::Viewer& _viewer;
    EditKeys& _editKeys;
    const Stage _stage;
    const Views& _views;
    const CameraView _view; ///< of the first clouds
    const bool _editAnyway; ///< stores that another program edits, too
    std::string _classesFile;
    CloudFiles _files;
    FileQuestions _questions;
    CloudsSection _section;
    DroppedFiles _dropped;
    ClassCounts& _counts;
    uint64_t _hidden = 0;
    std::vector<std::string> _uncounted; ///< stores whose hidden points nobody was told of
    size_t _nextToCheck = 0;             ///< of the clouds, for read errors
    std::set<std::string> _unreadable;   ///< stores with read errors that were told
    std::vector<std::string> _problems;  ///< to be told when all that was asked for is open
    std::string _title;
    std::string _opening;
    Clock::time_point _lastLook;
    Clock::time_point _lastTick;
    Clock::time_point _lastCheck;
};

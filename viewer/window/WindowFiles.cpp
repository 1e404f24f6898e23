#include "viewer/window/WindowFiles.h"

#include "terminal/ClassesFile.h"
#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/edit/EditText.h"
#include "viewer/operation/FileOperations.h"
#include "viewer/operation/Keys.h"
#include "viewer/operation/Operations.h"
#include "viewer/window/WaitingBoxes.h"

#include <VelBrx/ReadErrors.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

using namespace std::chrono_literals;
using VelBrx::Status;

namespace {

constexpr auto kLook = 30ms;  ///< for files that are ready
constexpr auto kTick = 100ms; ///< of bars and title
constexpr auto kCheck = 2s;   ///< of the files that are open

void print(const std::vector<std::string>& lines)
{
    for (const std::string& line : lines)
        std::fprintf(stderr, "brxview: %s\n", printable(line).c_str());
}

/// The first store and the number of the others; a mark where classes are not saved.
std::string titleOf(const Scene& scene, bool isUnsaved)
{
    const std::string mark = isUnsaved ? "* " : "";
    const auto nameOf = [](const std::string& path) {
        return std::filesystem::path(path).filename().string();
    };
    if (scene.isEmpty()) return mark + "brxview";
    const size_t stores = scene.clouds().size() + scene.waiting().size();
    if (stores == 0) return mark + nameOf(scene.previews().front().store) + " (preview) - brxview";
    const size_t others = stores - 1;
    return mark + nameOf(scene.firstStore()) +
           (others > 0 ? " and " + std::to_string(others) + " more" : "") + " - brxview";
}

bool isShown(const Scene& scene, const std::string& store)
{
    return std::any_of(scene.clouds().begin(), scene.clouds().end(),
                       [&](const Scene::Cloud& cloud) { return cloud.store == store; });
}

/// Whether a table is that of a file; of the user's or the standard's where there is none.
bool areSaved(const VelBrx::ClassTable& table, const std::string& file)
{
    ChosenClasses kept;
    if (!chooseClasses(file, {}, kept)) return false;
    for (unsigned code = 0; code < table.own().size(); ++code)
        if (table.name(code) != kept.table.name(code) || table.color(code) != kept.table.color(code))
            return false;
    return true;
}

} // namespace

WindowFiles::WindowFiles(osgViewer::Viewer& viewer, Gui& gui, EditKeys& editKeys, const Stage& stage,
                         const Views& views, ClassCounts& counts, Settings& settings, const Options& options)
    : _viewer(viewer), _editKeys(editKeys), _stage(stage), _views(views), _view(options.view),
      _editAnyway(options.editAnyway), _classesFile(options.classesFile),
      _files(stage.editing, stage.scene, settings), _questions(stage, _files, settings),
      _section(stage, _files, _questions), _dropped(viewer), _counts(counts)
{
    gui.add([this] { _questions.draw(); });
    _editKeys.setFiles(*this);
    _files.open(options.inputs, {options.normals, options.store, options.force});
}

void WindowFiles::update(bool isSettled)
{
    for (const std::string& path : _dropped.take())
        _editKeys.act(openRequest(path));
    const Clock::time_point now = Clock::now();
    if (now - _lastLook < kLook) return;
    _lastLook = now;
    if (_files.dropPreviews(isSettled)) _viewer.requestRedraw();
    takeNews();
    countHidden(isSettled);
    if (now - _lastCheck > kCheck) checkStores(now);
    if (now - _lastTick < kTick) return;
    _lastTick = now;
    _files.look(volumesOf(_views.all()));
    if (_files.isBusy() || _questions.isMoving()) _viewer.requestRedraw();
    updateTitle();
    _opening = describeOpening();
    tellReadErrors();
}

std::string WindowFiles::describeOpening() const
{
    if (!_files.isOpening()) return "";
    const std::vector<JobQueue::State> jobs = _files.openings();
    if (jobs.empty()) {
        const size_t open = _stage.scene.clouds().size();
        return "opening stores, " + grouped(open) + " of " + grouped(open + _stage.scene.waiting().size());
    }
    std::string text = "opening " + printable(jobs.front().title);
    const int percent = static_cast<int>(100 * jobs.front().share);
    if (percent > 0) text += ", " + std::to_string(percent) + " %";
    return jobs.size() == 1 ? text : text + " and " + grouped(jobs.size() - 1) + " more";
}

bool WindowFiles::isBusy() const
{
    return _files.isBusy() || _questions.isMoving() || !_uncounted.empty();
}

/// A folder's stores wait for a view in any case.
Status WindowFiles::open(const std::string& file, const How& how, std::string&)
{
    _files.open({file}, {"", how.place, how.rebuild});
    return {};
}

Status WindowFiles::openAll(std::string&)
{
    _files.openAll();
    return {};
}

Status WindowFiles::close(const Scene::Cloud& cloud)
{
    _files.close(cloud.id);
    return {};
}

Status WindowFiles::exportCloud(const Scene::Cloud& cloud, const std::string& file, bool replace,
                                std::string&)
{
    _files.exportCloud(cloud, file, replace);
    return {};
}

void WindowFiles::takeNews()
{
    const bool wasEmpty = _stage.scene.isEmpty();
    const bool wereNone = _stage.scene.clouds().empty();
    const uint64_t newestBefore = wereNone ? 0 : _stage.scene.clouds().back().id;
    const CloudFiles::News news = _files.update();
    print(news.problems);
    print(news.notes);
    print(news.done);
    for (const std::string& problem : news.problems)
        _section.tell(problem);
    for (const std::string& note : news.notes)
        _editKeys.warn(note);
    _problems.insert(_problems.end(), news.problems.begin(), news.problems.end());
    if (!_problems.empty() && _files.openings().empty())
        _editKeys.say(firstOf(std::exchange(_problems, {})));
    else if (!news.done.empty())
        _editKeys.mention(news.done);
    if (news.cloudsChanged) {
        if (_editAnyway) _stage.editing.editAnyway();
        for (const Scene::Cloud& cloud : _stage.scene.clouds()) {
            if (cloud.id <= newestBefore) continue; // ids grow
            _uncounted.push_back(cloud.store);
            readClasses(cloud.store);
        }
        if (wasEmpty && !_stage.scene.isEmpty()) _stage.look(_view, Lens());
        if (wereNone && !_stage.editing.unsavedPoints().empty())
            _editKeys.mention({"E and then " + keyOf("save") + " saves the classes, " + keyOf("dropUnsaved") +
                               " drops them"});
    }
    if (news.cloudsChanged || !news.problems.empty() || !news.done.empty()) _viewer.requestRedraw();
}

/// Those beside a store, where none but the user's or the standard's are known.
void WindowFiles::readClasses(const std::string& store)
{
    if (!_classesFile.empty() && _classesFile != userClassesFile()) return;
    ChosenClasses chosen;
    const Status read = chooseClasses("", {store}, chosen);
    if (!chosen.warning.empty()) _section.tell(chosen.warning);
    if (!read || chosen.file.empty() || chosen.file == userClassesFile()) return;
    if (!areSaved(classTable(), _classesFile)) {
        _section.tell(chosen.file + ": is not used, as names or colours of classes were changed and are not "
                                    "saved: save them in the section Classes, or open the store anew later");
        return;
    }
    _classesFile = chosen.file;
    _stage.scene.setClassTable(chosen.table);
}

/// The first picture comes first.
void WindowFiles::countHidden(bool isSettled)
{
    if (!isSettled || _files.isBusy()) return;
    _counts.update();
    tellHidden();
    const uint64_t hidden = _counts.hidden().value_or(_hidden);
    if (std::exchange(_hidden, hidden) != hidden) _viewer.requestRedraw();
}

/// People who see a hole should know that it can be filled.
void WindowFiles::tellHidden()
{
    if (_uncounted.empty()) return;
    uint64_t points = 0;
    std::vector<std::string> concerned;
    for (const std::string& store : _uncounted) {
        const std::optional<uint64_t> hidden = _counts.hidden(store);
        if (!hidden && isShown(_stage.scene, store)) return;
        if (hidden.value_or(0) > 0) concerned.push_back(store);
        points += hidden.value_or(0);
    }
    const size_t all = std::exchange(_uncounted, {}).size();
    if (concerned.empty()) return;
    const std::string told = describeHidden(points, concerned, all);
    print({told});
    _editKeys.mention({told, "E and then " + keyOf("reset") + " shows them all, E, a and " + keyOf("uncull") +
                                 " those under a polygon"});
}

/// Of one cloud after the other, each once.
void WindowFiles::tellReadErrors()
{
    const std::vector<Scene::Cloud>& clouds = _stage.scene.clouds();
    if (clouds.empty()) return;
    const Scene::Cloud& cloud = clouds[_nextToCheck++ % clouds.size()];
    const VelBrx::Status read = VelBrx::checkReads(*cloud.octree().pointFile).of(cloud.store);
    if (read || !_unreadable.insert(cloud.store).second) return;
    print({read.message()});
    _editKeys.warn(read.message(), EditKeys::Gravity::DAMAGE);
    _viewer.requestRedraw();
}

void WindowFiles::checkStores(Clock::time_point now)
{
    _lastCheck = now;
    const std::vector<std::string> problems = _files.checkStores();
    if (problems.empty()) return;
    print(problems);
    for (const std::string& problem : problems)
        _section.tell(problem);
    _editKeys.say(firstOf(problems));
    _viewer.requestRedraw();
}

void WindowFiles::updateTitle()
{
    const std::string title = titleOf(_stage.scene, !_stage.editing.unsavedPoints().empty());
    if (title == _title) return;
    _title = title;
    osgViewer::ViewerBase::Windows windows;
    _viewer.getWindows(windows);
    for (osgViewer::GraphicsWindow* window : windows)
        window->setWindowName(title);
}

bool WindowFiles::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getEventType() != osgGA::GUIEventAdapter::KEYDOWN || event.getHandled()) return false;
    switch (keyPressed(event)) {
    case kCtrl | 'o':
        _questions.askToOpen();
        break;
    case kCtrl | 's':
        _editKeys.act(Request(*findOperation("save")));
        break;
    case kCtrl | kShift | 's':
        _questions.askToExport(_section.current());
        break;
    case kCtrl | 'w':
        _questions.askToClose(_section.current());
        break;
    default:
        return false;
    }
    action.requestRedraw();
    return true;
}

void WindowFiles::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("Ctrl+O", "open stores, LAS and LAZ files");
    usage.addKeyboardMouseBinding("Ctrl+S", "save the classes");
    usage.addKeyboardMouseBinding("Ctrl+Shift+S", "export the chosen cloud as LAS, LAZ or COPC");
    usage.addKeyboardMouseBinding("Ctrl+W", "close the chosen cloud");
}

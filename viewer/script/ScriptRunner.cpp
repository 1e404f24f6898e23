#include "viewer/script/ScriptRunner.h"

#include "terminal/EndSignals.h"
#include "terminal/Text.h"
#include "viewer/edit/EditText.h"
#include "viewer/files/StoreExport.h"
#include "viewer/operation/MeasureOperations.h"
#include "viewer/picture/PictureView.h"
#include "viewer/scene/InputFiles.h"
#include "viewer/scene/StoreCache.h"
#include "viewer/scene/StoreOpener.h"
#include "viewer/scene/WaitingStore.h"

#include <VelBrx/PointCounts.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <map>
#include <numeric>

using nlohmann::ordered_json;
using VelBrx::Status;

namespace script {

namespace {

constexpr char kInterrupted[] =
    "brxview: the running operation is finished first; another signal ends the program at once\n";

/// One line on stdout, at once: whoever reads it may wait for it.
Status print(const ordered_json& line)
{
    const bool written =
        std::puts(line.dump(-1, ' ', false, ordered_json::error_handler_t::replace).c_str()) >= 0 &&
        std::fflush(stdout) == 0;
    return written ? Status()
                   : Status::failure("standard output cannot be written; check the disk or the pipe");
}

/// Carries the operations out, one after the other.
class Runner : public SectionStage, private FileStage
{
public:
    /// `cancel` ends waiting for points.
    Runner(osgViewer::Viewer& viewer, Scene& scene, const Options& options, const std::atomic<bool>& cancel)
        : _viewer(viewer), _scene(scene), _options(options), _cancel(cancel), _view(viewer, scene)
    {
    }

    /// Opens the window and looks as the command line says.
    Status open()
    {
        if (Status status = _view.open(_options.headless->size); !status) return status;
        look(_options.view, Lens());
        showLegend();
        _editing.emplace(_scene, _viewer, _options.author);
        for (const std::string& note : _editing->notes())
            std::fprintf(stderr, "brxview: %s\n", printable(note).c_str());
        return Status();
    }

    /// Carries an operation out. What came of it is added to `line`.
    Status carryOut(const Request& request, ordered_json& line)
    {
        _line = &line;
        if (request.operation().outline()) // is drawn on the picture
            if (Status opened = openInView(); !opened) return opened;
        const auto own = ownOperations().find(request.operation().name);
        if (own != ownOperations().end()) return (this->*own->second)(request);
        Stage stage{_scene, *_editing,
                    [this](const CameraView& view, const std::optional<Lens>& lens) { look(view, lens); }};
        stage.section = this;
        stage.measuring = &_measuring;
        stage.files = this;
        const Begun begun = ::carryOut(request, stage);
        if (begun.state == Begun::BUSY) return Status::failure("another operation is running");
        if (begun.state == Begun::REFUSED) return Status::failure(begun.message);
        std::optional<VelOsgDBBrx::EditOutcome> outcome;
        if (begun.state == Begun::RUNNING) outcome = _editing->wait();
        if (outcome && _options.editAnyway && needsChoice(*outcome)) {
            _editing->editAnyway();
            ::carryOut(request, stage);
            outcome = _editing->wait();
        }
        const Status status = outcome ? tell(*outcome) : Status();
        if (!begun.message.empty()) line["message"] = begun.message;
        showLegend();
        return status;
    }

    uint64_t countUnsaved() const { return _editing ? totalOf(_editing->unsavedPoints()) : 0; }
    uint64_t countLost() const { return _editing ? totalOf(_editing->unkeptPoints()) : 0; }

private:
    using Own = Status (Runner::*)(const Request&);

    /// Those that are a matter of how scripts run.
    static const std::map<std::string, Own>& ownOperations()
    {
        static const std::map<std::string, Own> own = {
            {"window", &Runner::keepWindow}, {"settle", &Runner::settle},
            {"render", &Runner::render},     {"report", &Runner::report},
            {"measure", &Runner::measure},   {"measuresCsv", &Runner::writeMeasurements}};
        return own;
    }

    std::optional<Section> section() const override
    {
        return _section ? std::optional<Section>(_section->section()) : std::nullopt;
    }

    void showSection(const std::optional<Section>& section) override
    {
        if (section)
            show(SectionFrame::whole(*section, _scene, _view.aspect()));
        else
            show(std::nullopt);
    }

    void changeSection(const Section& section) override
    {
        SectionFrame frame = *_section;
        frame.setSection(section);
        show(frame);
    }

    Status open(const std::string& file, const How& how, std::string& told) override
    {
        const bool wasEmpty = _scene.isEmpty();
        std::vector<std::string> lines;
        std::vector<std::string> inputs = {file};
        std::vector<OpenedStore> stores;
        Status status = expandFolders(inputs);
        if (status && how.inView && hasIndexFile(file)) {
            status = await(file, lines);
            inputs.clear();
        }
        for (size_t i = 0; status && i < inputs.size(); ++i) {
            StorePlan plan;
            status = findStore(inputs[i], how.rebuild || _options.force, how.place, plan);
            if (status && !plan.source.empty())
                status = buildStore(
                    plan, [](const VelBrx::BuildProgress&) {}, _cancel, lines);
            std::string note;
            if (status) status = openStore(plan.store, "", stores.emplace_back(), note);
            for (const std::string& line : {note, warnOfCache(inputs[i], plan.store)})
                if (status && !line.empty()) lines.push_back(line);
        }
        if (!status) return status;
        _editing->addClouds(std::move(stores));
        lines.insert(lines.end(), _editing->notes().begin(), _editing->notes().end());
        told = joined(lines);
        if (wasEmpty) look(_options.view, Lens());
        return Status();
    }

    Status openAll(std::string& told) override { return openWaiting(allStores(_scene.waiting(), {}), told); }

    /// The stores of a folder with an index file wait until they are in the picture.
    Status await(const std::string& folder, std::vector<std::string>& lines)
    {
        std::vector<WaitingStore> stores;
        std::vector<std::string> problems;
        if (Status status = readIndexedStores(folder, stores, lines, problems); !status) return status;
        if (!problems.empty()) return Status::failure(problems.front());
        _scene.await(std::move(stores), lines);
        return {};
    }

    Status openInView()
    {
        std::string told;
        const Status status = openWaiting(wantedStores(_scene.waiting(), {_view.volume()}), told);
        if (!told.empty()) std::fprintf(stderr, "brxview: %s\n", printable(told).c_str());
        return status;
    }

    Status openWaiting(const std::vector<std::string>& paths, std::string& told)
    {
        std::vector<std::string> lines;
        std::vector<OpenedStore> stores;
        if (Status status = openStores(paths, &_cancel, stores, lines); !status) return status;
        if (stores.empty()) return {};
        _editing->addClouds(std::move(stores));
        lines.insert(lines.end(), _editing->notes().begin(), _editing->notes().end());
        told = joined(lines);
        return {};
    }

    Status close(const Scene::Cloud& cloud) override
    {
        _editing->removeCloud(cloud.id);
        return Status();
    }

    Status exportCloud(const Scene::Cloud& cloud, const std::string& file, bool replace,
                       std::string& told) override
    {
        std::vector<std::string> lines;
        const Status status = exportStore(
            cloud.store, file, replace || _options.force, [](const VelBrx::BuildProgress&) {}, _cancel,
            lines);
        told = joined(lines);
        (*_line)["file"] = file;
        return status;
    }

    static std::string joined(const std::vector<std::string>& lines)
    {
        std::string text;
        for (const std::string& line : lines)
            text += (text.empty() ? "" : "; ") + line;
        return text;
    }

    /// Edits are about what the picture shows.
    void show(const std::optional<SectionFrame>& section)
    {
        _section = section;
        _view.show(section);
        _editing->setSight(
            {_viewer.getCamera(), section ? section->section().planes() : std::vector<osg::Vec4d>()});
    }

    /// Without a lens the projection stays. A section ends.
    void look(const CameraView& view, const std::optional<Lens>& given)
    {
        if (_section) show(std::nullopt);
        Lens lens = given.value_or(Lens{_orthographic});
        _orthographic = lens.orthographic;
        const osg::BoundingBoxd& bounds = _scene.boundsFor(view);
        const Look wanted = lookAt(view, bounds, _view.aspect());
        if (lens.orthographic && lens.height == 0) lens = orthographicLens(wanted, bounds, _view.aspect());
        _view.look(lens.orthographic ? withAllInFront(wanted, _scene.bounds()) : wanted, lens);
    }

    /// As the scene has it by now.
    void showLegend()
    {
        if (!_options.legend || _legendRevision == _scene.legendRevision()) return;
        _legendRevision = _scene.legendRevision();
        _view.setLegend(_scene.legend());
    }

    /// It is open already, in the size that the script says.
    Status keepWindow(const Request&) { return Status(); }

    Status settle(const Request&)
    {
        Status status = openInView();
        if (status) status = _view.settle(_options.headless->timeoutSeconds, &_cancel);
        tellDrawn();
        return status;
    }

    Status render(const Request& request)
    {
        Status status = openInView();
        if (status) status = _view.settle(_options.headless->timeoutSeconds, &_cancel);
        const auto& file = request.get<std::string>("file");
        if (status) status = _view.write(file);
        (*_line)["file"] = file;
        tellDrawn();
        return status;
    }

    Status report(const Request&)
    {
        const auto unsaved = _editing->unsavedPoints();
        auto stores = ordered_json::array();
        for (const Scene::Cloud& cloud : _scene.clouds()) {
            VelBrx::PointCounts counts;
            if (Status status = VelBrx::countPoints(cloud.store, counts); !status) return status;
            const auto changed = unsaved.find(cloud.store);
            stores.push_back(
                {{"store", cloud.store},
                 {"points", std::accumulate(counts.byClass.begin(), counts.byClass.end(), uint64_t{0})},
                 {"hiddenPoints", counts.hidden},
                 {"pointsByClass", histogramJson(counts.byClass.data(), counts.byClass.size())},
                 {"unsaved", changed == unsaved.end() ? 0 : changed->second}});
        }
        (*_line)["stores"] = stores;
        (*_line)["steps"] = stepsJson();
        return Status();
    }

    Status measure(const Request& request)
    {
        const Measurements::Entry& entry = _measuring.addNow(measurementOf(request));
        (*_line)["number"] = entry.number;
        (*_line)["kind"] = nameOf(entry.measurement.kind);
        for (const Figure& figure : entry.figures)
            (*_line)["figures"][figure.name] = {{"value", figure.value}, {"unit", figure.unit}};
        if (!entry.remark.empty()) (*_line)["message"] = entry.remark;
        return Status();
    }

    Status writeMeasurements(const Request& request)
    {
        const auto& file = request.get<std::string>("file");
        (*_line)["file"] = file;
        return _measuring.list().writeCsv(file, _options.force || request.get<bool>("replace"));
    }

    ordered_json stepsJson() const
    {
        auto steps = ordered_json::array();
        for (const VelOsgDBBrx::EditStep& step : _editing->steps())
            steps.push_back({{"step", steps.size() + 1},
                             {"time", timeText(step.time)},
                             {"author", step.author},
                             {"name", step.name},
                             {"points", step.points},
                             {"done", step.isDone},
                             {"saved", !step.isUnsaved}});
        return steps;
    }

    void tellDrawn()
    {
        const DrawnCounts drawn = _view.countDrawn();
        (*_line)["pointsDrawn"] = drawn.points;
        (*_line)["cellsDrawn"] = drawn.cells;
    }

    /// Whether an operation was refused that `--edit-anyway` is for.
    static bool needsChoice(const VelOsgDBBrx::EditOutcome& outcome)
    {
        return outcome.isBusyElsewhere || outcome.isNotJournalled;
    }

    Status tell(const VelOsgDBBrx::EditOutcome& outcome)
    {
        ordered_json& line = *_line;
        line["points"] = outcome.points;
        if (!outcome.undone.empty()) line["undone"] = outcome.undone;
        if (!outcome.redone.empty()) line["redone"] = outcome.redone;
        if (outcome.classes) {
            line["selected"] = outcome.classes->selected;
            line["before"] = histogramJson(outcome.classes->before.data(), outcome.classes->before.size());
            line["after"] = histogramJson(outcome.classes->after.data(), outcome.classes->after.size());
        }
        const bool isChoice = needsChoice(outcome) && !_options.editAnyway;
        if (!outcome.ok)
            return Status::failure(outcome.message +
                                   (isChoice ? "; --edit-anyway edits it all the same" : ""));
        if (!outcome.message.empty()) line["message"] = outcome.message;
        return Status();
    }

    osgViewer::Viewer& _viewer;
    Scene& _scene;
    const Options& _options;
    const std::atomic<bool>& _cancel;
    PictureView _view;
    std::optional<SceneEditing> _editing;
    std::optional<SectionFrame> _section; ///< that the picture shows
    bool _orthographic = false;           ///< the picture
    Measuring _measuring{_scene};
    std::optional<unsigned> _legendRevision; ///< of the scene, as the picture has it
    ordered_json* _line = nullptr;           ///< of the operation at hand
};

/// Carries all operations out, up to the first that fails or during which `interrupted` becomes true: a
/// running edit is finished. `done` counts those that were carried out.
Status runSteps(const Script& script, Runner& runner, const std::atomic<bool>& interrupted, size_t& done)
{
    if (Status status = runner.open(); !status) return status;
    for (done = 0; done < script.steps.size() && !interrupted; ++done) {
        const Request& step = script.steps[done];
        ordered_json line = {{"operation", done + 1}, {"op", step.operation().name}};
        const Status status = runner.carryOut(step, line);
        if (!status) line["error"] = status.message();
        if (const Status printed = print(line); !printed) return printed;
        if (!status) return Status::failure(nameOfStep(done, &step.operation()) + ": " + status.message());
    }
    return Status();
}

/// How a script ended, for its last line.
const char* endOf(const Status& status, bool interrupted)
{
    if (interrupted) return "interrupted";
    return status ? "done" : "failed";
}

} // namespace

Status run(const Script& script, osgViewer::Viewer& viewer, Scene& scene, const Options& options)
{
    const EndSignals signals(kInterrupted);
    std::signal(SIGPIPE, SIG_IGN); // printing fails instead, and the end can be an orderly one
    Runner runner(viewer, scene, options, signals.received());
    size_t done = 0;
    Status status = runSteps(script, runner, signals.received(), done);
    const bool interrupted = signals.received();
    if (interrupted && status)
        status = Status::failure("ended by a signal after " + std::to_string(done) + " of " +
                                 std::to_string(script.steps.size()) + " operations");
    const uint64_t unsaved = runner.countUnsaved();
    const Status printed = print({{"end", endOf(status, interrupted)},
                                  {"operations", script.steps.size()},
                                  {"done", done},
                                  {"unsaved", unsaved}});
    if (status) status = printed;

    std::string told = status ? "" : status.message();
    if (unsaved > 0)
        told += (status ? "" : "; ") + std::string("the changed classes of ") + std::to_string(unsaved) +
                " points are not saved";
    const uint64_t lost = runner.countLost();
    if (lost > 0) told += "; " + describeLost(lost) + ", so end the script with save";
    if (!status || lost > 0) return Status::failure(script.name + ": " + told);
    if (!told.empty())
        std::fprintf(stderr, "brxview: %s: %s\n", printable(script.name).c_str(), printable(told).c_str());
    return Status();
}

} // namespace script

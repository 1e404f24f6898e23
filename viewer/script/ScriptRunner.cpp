#include "viewer/script/ScriptRunner.h"

#include "terminal/EndSignals.h"
#include "viewer/edit/EditSession.h"
#include "viewer/picture/PictureView.h"

#include <VelBrx/PointCounts.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <numeric>

using nlohmann::ordered_json;
using VelBrx::Status;
using VelOsgDBBrx::Type;

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

template <size_t N>
ordered_json histogram(const std::array<uint64_t, N>& counts)
{
    ordered_json json = ordered_json::object();
    for (size_t value = 0; value < N; ++value)
        if (counts[value] > 0) json[std::to_string(value)] = counts[value];
    return json;
}

/// Carries the operations out, one after the other.
class Runner
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
        if (Status status = _view.open(_options.headless->size, _options.budget); !status) return status;
        look(_options.view, Lens());
        showLegend();
        _session.emplace(_scene, _viewer);
        return Status();
    }

    /// Carries an operation out. What came of it is added to `line`.
    Status carryOut(const Operation& operation, ordered_json& line)
    {
        _line = &line;
        return std::visit([this](const auto& wanted) { return perform(wanted); }, operation);
    }

    uint64_t countUnsaved() const
    {
        uint64_t points = 0;
        if (!_session) return points;
        for (const auto& [store, unsaved] : _session->unsavedPoints())
            points += unsaved;
        return points;
    }

private:
    void look(const CameraView& view, const Lens& lens)
    {
        const Look wanted = lookAt(view, _scene.boundsFor(view), _view.aspect());
        _view.look(lens.orthographic ? withAllInFront(wanted, _scene.bounds()) : wanted, lens);
    }

    void showLegend()
    {
        if (_options.legend) _view.setLegend(_scene.legend());
    }

    /// The window is open already.
    Status perform(const Window&) { return Status(); }

    Status perform(const Camera& camera)
    {
        Lens lens{camera.orthographic, camera.height};
        if (lens.orthographic && lens.height == 0) {
            const osg::BoundingBoxd& bounds = _scene.boundsFor(camera.view);
            lens = orthographicLens(lookAt(camera.view, bounds, _view.aspect()), bounds, _view.aspect());
        }
        look(camera.view, lens);
        return Status();
    }

    Status perform(const Mode& mode)
    {
        _scene.setColorMode(mode.mode);
        showLegend();
        if (const std::string remark = _scene.remark(); !remark.empty()) (*_line)["message"] = remark;
        return Status();
    }

    Status perform(const EyeDomeLighting& lighting)
    {
        _scene.setEyeDomeLighting(lighting.on);
        const EyeDomeShading now = _scene.shading();
        _scene.setShading({lighting.strength.value_or(now.strength), lighting.radius.value_or(now.radius)});
        return Status();
    }

    Status perform(const Light& light)
    {
        _scene.setLight(light.light);
        return Status();
    }

    Status perform(const PointSize& size)
    {
        _scene.setPointSize(size.pixels);
        return Status();
    }

    Status perform(const ShowClasses& show)
    {
        _scene.setShownClasses(show.classes);
        return Status();
    }

    Status perform(const Clip& clip)
    {
        _scene.setClipPlanes(clip.planes);
        return Status();
    }

    Status perform(const Cull& cull)
    {
        return finish(_session->hide(cull.polygon, cull.inside ? Type::INSIDE : Type::OUTSIDE));
    }

    Status perform(const Uncull& uncull) { return finish(_session->show(uncull.polygon)); }

    Status perform(const Select& select) { return finish(_session->select(select.polygon, true)); }

    Status perform(const Deselect& deselect) { return finish(_session->select(deselect.polygon, false)); }

    Status perform(const Segment& segment) { return finish(_session->segment(!segment.hideSelected)); }

    Status perform(const Line& line) { return finish(_session->line(line.line, line.width)); }

    Status perform(const Classify& classify)
    {
        const Reclassification change{classify.to, classify.from, classify.dryRun};
        const Status status = finish(_session->reclassify(classify.polygon, change));
        showLegend();
        return status;
    }

    Status perform(const Undo&) { return finish(_session->undo()); }
    Status perform(const UndoAll&) { return finish(_session->undoAll()); }
    Status perform(const Reset&) { return finish(_session->reset()); }
    Status perform(const Save&) { return finish(_session->save()); }

    Status perform(const Settle&)
    {
        const Status status = _view.settle(_options.headless->timeoutSeconds, &_cancel);
        tellDrawn();
        return status;
    }

    Status perform(const Render& render)
    {
        Status status = _view.settle(_options.headless->timeoutSeconds, &_cancel);
        if (status) status = _view.write(render.file);
        (*_line)["file"] = render.file;
        tellDrawn();
        return status;
    }

    Status perform(const Report&)
    {
        const auto unsaved = _session->unsavedPoints();
        auto stores = ordered_json::array();
        for (const Scene::Cloud& cloud : _scene.clouds()) {
            VelBrx::PointCounts counts;
            if (Status status = VelBrx::countPoints(cloud.store, counts); !status) return status;
            const auto changed = unsaved.find(cloud.store);
            stores.push_back(
                {{"store", cloud.store},
                 {"points", std::accumulate(counts.byClass.begin(), counts.byClass.end(), uint64_t{0})},
                 {"hiddenPoints", counts.hidden},
                 {"pointsByClass", histogram(counts.byClass)},
                 {"unsaved", changed == unsaved.end() ? 0 : changed->second}});
        }
        (*_line)["stores"] = stores;
        return Status();
    }

    void tellDrawn()
    {
        const DrawnCounts drawn = _view.countDrawn();
        (*_line)["pointsDrawn"] = drawn.points;
        (*_line)["cellsDrawn"] = drawn.cells;
    }

    /// Waits for the operation that was started, and tells what came of it.
    Status finish(bool started)
    {
        if (!started) return Status::failure("another operation is running");
        const EditOutcome outcome = _session->wait();
        ordered_json& line = *_line;
        line["points"] = outcome.points;
        if (!outcome.undone.empty()) line["undone"] = outcome.undone;
        if (outcome.classes) {
            line["selected"] = outcome.classes->selected;
            line["before"] = histogram(outcome.classes->before);
            line["after"] = histogram(outcome.classes->after);
        }
        if (!outcome.ok) return Status::failure(outcome.message);
        if (!outcome.message.empty()) line["message"] = outcome.message;
        return Status();
    }

    osgViewer::Viewer& _viewer;
    Scene& _scene;
    const Options& _options;
    const std::atomic<bool>& _cancel;
    PictureView _view;
    std::optional<EditSession> _session;
    ordered_json* _line = nullptr; ///< of the operation at hand
};

/// Carries all operations out, up to the first that fails or during which `interrupted` becomes true: a
/// running edit is finished. `done` counts those that were carried out.
Status runSteps(const Script& script, Runner& runner, const std::atomic<bool>& interrupted, size_t& done)
{
    if (Status status = runner.open(); !status) return status;
    for (done = 0; done < script.steps.size() && !interrupted; ++done) {
        const Step& step = script.steps[done];
        ordered_json line = {{"operation", done + 1}, {"op", step.name}};
        const Status status = runner.carryOut(step.operation, line);
        if (!status) line["error"] = status.message();
        if (const Status printed = print(line); !printed) return printed;
        if (!status) return Status::failure(nameOfStep(script, done) + ": " + status.message());
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

    const std::string lost = "the changed classes of " + std::to_string(unsaved) + " points were not saved";
    if (!status)
        return Status::failure(script.name + ": " + status.message() + (unsaved > 0 ? "; " + lost : ""));
    if (unsaved == 0) return Status();
    return Status::failure(script.name + ": " + lost +
                           "; end the script with save, or with undoAll if that is meant");
}

} // namespace script

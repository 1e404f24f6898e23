#include "viewer/window/EditKeys.h"

#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/edit/EditText.h"
#include "viewer/operation/EditOperations.h"
#include "viewer/window/WindowStage.h"

#include <osgGA/CameraManipulator>
#include <osgViewer/View>

#include <algorithm>
#include <cmath>
#include <utility>

using osgGA::GUIEventAdapter;

namespace {

constexpr int kPaintKey = 'K'; // what a brush does to begin with
// A window system sends the control character.
constexpr int kCtrlQ = 'Q' - '@';
constexpr int kCtrlY = 'Y' - '@';
constexpr int kCtrlZ = 'Z' - '@';

/// Keys of the number pad as those of the main one, those that other programs have for undo and redo as those
/// of the table.
int plainKey(const GUIEventAdapter& event)
{
    const int key = event.getKey();
    if (key == kCtrlZ) return event.getModKeyMask() & GUIEventAdapter::MODKEY_SHIFT ? 'y' : 'z';
    if (key == kCtrlY) return 'y';
    if (key >= GUIEventAdapter::KEY_KP_0 && key <= GUIEventAdapter::KEY_KP_9)
        return '0' + key - GUIEventAdapter::KEY_KP_0;
    return key == GUIEventAdapter::KEY_KP_Enter ? int(GUIEventAdapter::KEY_Return) : key;
}

bool isDigit(int key)
{
    return key >= '0' && key <= '9';
}

/// What keys do to a shape; `points`: to one that is no outline.
std::string hintOfShape(bool points)
{
    std::string hint;
    for (const Operation& operation : operations())
        for (const Key& key : operation.keys) {
            if (!operation.outline() || (points && !operation.find("points"))) continue;
            hint += (hint.empty() ? "now " : ", ") + key.name() + " " + key.hint;
        }
    return hint;
}

/// The attributes that edits are limited by, "returns, intensity"; empty where they are not.
std::string limitingAttributes(const Scene& scene)
{
    const Request ranges = rangesOf(scene);
    std::string names;
    for (const Parameter& parameter : ranges.operation().parameters)
        if (ranges.has(parameter.name)) names += (names.empty() ? "" : ", ") + parameter.name;
    return names;
}

void append(std::vector<std::string>& lines, const std::vector<std::string>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
}

} // namespace

EditKeys::EditKeys(SceneEditing& session, Scene& scene, osgViewer::Viewer& viewer, Views& views,
                   Overlay& overlay, ClassChoice& classes, Measuring& measuring)
    : _session(session), _scene(scene), _viewer(viewer), _classes(classes),
      _stage(windowStage(scene, session, views, measuring)), _overlay(&overlay), _tools(scene, views),
      _place(session, scene, views, _tools, classes), _typing(classes),
      _painting(requestOf(*findKey(kPaintKey, Key::EDITING), scene))
{
}

bool EditKeys::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (_tools.dropFromOtherView()) {
        _report = {"the picture has moved: draw again"};
        show();
    }
    constexpr std::chrono::seconds kLong(20); // to read some lines
    constexpr int kOfPeople = GUIEventAdapter::MOVE | GUIEventAdapter::DRAG | GUIEventAdapter::KEYDOWN;
    if (!_mentionsEnd && event.getEventType() & kOfPeople) _mentionsEnd = Clock::now() + kLong;
    bool handled = false;
    switch (event.getEventType()) {
    case GUIEventAdapter::FRAME:
        update();
        break;
    case GUIEventAdapter::KEYDOWN:
        handled = !event.getHandled() && handleKey(event);
        break;
    case GUIEventAdapter::PUSH:
    case GUIEventAdapter::DOUBLECLICK:
    case GUIEventAdapter::RELEASE:
    case GUIEventAdapter::DRAG:
    case GUIEventAdapter::MOVE:
    case GUIEventAdapter::SCROLL:
        handled = !event.getHandled() && handleMouse(event);
        break;
    default:
        break;
    }
    if (handled) {
        show();
        action.requestRedraw();
    }
    return handled;
}

bool EditKeys::handleMouse(const GUIEventAdapter& event)
{
    if (_question.isOpen()) return true;
    if (event.getEventType() == GUIEventAdapter::PUSH && dropMentions()) show();
    const bool isHandled = _tools.handleMouse(event);
    if (const std::string message = _tools.takeMessage(); !message.empty()) _report = {message};
    if (_tools.brush() && _tools.brush()->isClosed()) paint();
    return isHandled;
}

bool EditKeys::handleKey(const GUIEventAdapter& event)
{
    const int key = plainKey(event);
    if (key == kCtrlQ) {
        askToClose();
        return true;
    }
    if (_question.isOpen()) {
        answer(key);
        return true;
    }
    if (_typing.isOpen()) {
        type(key);
        return true;
    }
    if (key == GUIEventAdapter::KEY_Escape && _session.progress()) {
        _session.cancel();
        return true;
    }
    if (_editing && _tools.handleKey(key)) {
        const std::string message = _tools.takeMessage();
        _report.assign(message.empty() ? 0 : 1, message);
        return true;
    }
    if (_editing) return editByKey(key, event);
    if (const ToolKind* kind = findTool(key))
        takeTool(*kind); // as its button in the panel does
    else if (key == 'E')
        _editing = true;
    else
        return dropReport(key);
    return true;
}

bool EditKeys::dropReport(int key)
{
    if (key != GUIEventAdapter::KEY_Escape) return false;
    const bool isDropped = dropMentions() || !_report.empty();
    _report.clear();
    return isDropped;
}

bool EditKeys::dropMentions()
{
    return !std::exchange(_mentions, {}).empty();
}

bool EditKeys::hasNews() const
{
    return _session.hasOutcome() || _working != working() ||
           (!_mentions.empty() && _mentionsEnd && Clock::now() > *_mentionsEnd);
}

void EditKeys::mention(const std::vector<std::string>& lines, Gravity gravity)
{
    for (const std::string& line : lines)
        _mentions.emplace(gravity, line);
    _mentionsEnd.reset();
    show();
    _viewer.requestRedraw();
}

void EditKeys::say(const std::vector<std::string>& lines)
{
    append(_report, lines);
    show();
    _viewer.requestRedraw();
}

void EditKeys::tell(const std::string& line)
{
    _report = {line};
    show();
    _viewer.requestRedraw();
}

void EditKeys::answer(int key)
{
    switch (_question.answer(key)) {
    case EditQuestion::Answer::NONE:
        break;
    case EditQuestion::Answer::LEAVE:
        _strokes.clear();
        break;
    case EditQuestion::Answer::DO_IT:
        start(_question.asked());
        break;
    case EditQuestion::Answer::EDIT_ANYWAY:
        _session.editAnyway();
        _again();
        break;
    case EditQuestion::Answer::SAVE_AND_CLOSE:
        _closing = _session.save();
        break;
    case EditQuestion::Answer::KEEP_AND_CLOSE:
        _viewer.setDone(true);
        break;
    case EditQuestion::Answer::DROP_AND_CLOSE:
        _closing = _session.dropUnsaved();
        break;
    }
}

void EditKeys::type(int key)
{
    std::string problem;
    const std::optional<Request> request = _typing.type(key, _scene, problem);
    if (!problem.empty()) _report = {problem};
    if (request) apply(*request, false);
    if (request || (key == GUIEventAdapter::KEY_Return && !_typing.isOpen())) _report.clear();
}

void EditKeys::warn(const std::string& line, Gravity gravity)
{
    _warnings.emplace(gravity, line);
    if (!_editing) mention({line}, gravity);
}

std::vector<std::string> EditKeys::firstOf(const Lines& lines)
{
    std::vector<std::string> all;
    for (const auto& [gravity, line] : lines)
        all.push_back(line);
    return ::firstOf(std::move(all));
}

bool EditKeys::editByKey(int key, const GUIEventAdapter& event)
{
    if (isDigit(key)) {
        _typing.typeDigit(key - '0', event.getTime());
        return true;
    }
    _typing.endNumber();
    if (const std::optional<PressedKey> pressed = findKey(key, Key::EDITING))
        press(*pressed);
    else if (const ToolKind* kind = findTool(key))
        takeTool(*kind);
    else if (key == GUIEventAdapter::KEY_Return && _tools.takeAgain(event))
        stopCamera();
    else if (key == 'F')
        _typing.begin(std::nullopt);
    else if (key == 'E')
        leave();
    else
        return dropReport(key);
    return true;
}

void EditKeys::takeTool(const ToolKind& kind)
{
    _editing = true;
    _tools.take(kind, *_viewer.getEventQueue()->getCurrentEventState());
    _painting = requestOf(*findKey(kPaintKey, Key::EDITING), _scene);
    stopCamera();
}

/// One that was thrown stands still from now on.
void EditKeys::stopCamera()
{
    _shapeInUse = false; // of the running operation's shape, which another one replaces
    _report.clear();
    if (osgGA::CameraManipulator* manipulator = _viewer.getCameraManipulator())
        manipulator->init(*_viewer.getEventQueue()->getCurrentEventState(), _viewer);
    show();
}

void EditKeys::leave()
{
    _editing = false;
    _tools.putDown();
    _report.clear();
}

void EditKeys::press(const PressedKey& pressed)
{
    if (pressed.key->typed) {
        _typing.begin(pressed);
    } else if (pressed.operation->question) {
        _question.askIfSure(requestOf(pressed, _scene), pressed.key->key);
    } else {
        start(requestOf(pressed, _scene));
    }
}

void EditKeys::act(const Request& request)
{
    const Operation& operation = request.operation();
    if (operation.question)
        _question.askIfSure(request, operation.keys.empty() ? 'y' : operation.keys.front().key);
    else
        start(request);
    show();
    _viewer.requestRedraw();
}

void EditKeys::start(Request request)
{
    const Operation& operation = request.operation();
    const bool needsPlace = RequestPlace::isNeeded(request);
    if (needsPlace && _tools.brush() && operation.outline()->type == Parameter::POLYGON) {
        _painting = request;
        _report = {"the brush " + std::string(operation.words) + " from now on"};
        return;
    }
    if (operation.find("from") && !request.has("from") && _classes.fromClasses.none()) {
        _report = {"no class may change: tick some in the section Classes, or type them after F"};
        return;
    }
    if (needsPlace) {
        if (const std::string problem = _place.add(request); !problem.empty()) {
            _report = {problem};
            return;
        }
    }
    _place.addClasses(request);
    const bool isDryRun = operation.find("dryRun") && request.get<bool>("dryRun");
    apply(request, needsPlace && !isDryRun);
}

void EditKeys::paint()
{
    Request request = _painting;
    bool canWait = false;
    _place.addClasses(request);
    if (const std::string problem = _place.addStroke(request, canWait); !problem.empty()) {
        _report = {problem};
    } else if (canWait) {
        _strokes.push_back(request);
        paintNext();
    } else {
        apply(request, false);
    }
}

void EditKeys::paintNext()
{
    if (_strokes.empty() || _session.isBusy() || _question.isOpen()) return;
    const Request request = _strokes.front();
    _strokes.pop_front();
    apply(request, false);
}

void EditKeys::apply(const Request& request, bool usesShape)
{
    const Begun begun = carryOut(request, _stage);
    if (begun.state == Begun::BUSY) {
        wait(request);
        return;
    }
    if (!begun.message.empty()) _report = {begun.message};
    if (begun.state != Begun::RUNNING) return;
    _again = [this, request, usesShape] { apply(request, usesShape); };
    _shapeInUse = usesShape;
    _working.clear();
    update();
}

/// One that means no picture waits for the running operation: the next one, not a row of them, which a key
/// that is held would make longer than anybody means.
void EditKeys::wait(const Request& request)
{
    const bool canWait = !_next && !request.operation().outline();
    if (canWait) _next = request;
    _meanwhile = _next ? "then it " + std::string(_next->operation().words) : "";
    if (!canWait) _meanwhile += (_next ? "; " : "") + std::string("press the key again when that is done");
}

/// Does what has waited, when the strokes before it are done.
void EditKeys::goOn()
{
    paintNext();
    if (!_next || _session.isBusy() || !_strokes.empty() || _question.isOpen()) return;
    const Request next = *std::exchange(_next, std::nullopt);
    apply(next, false);
}

void EditKeys::askToClose()
{
    _closing = _session.isBusy();
    if (_closing) return;
    _unsaved = _session.unsavedPoints();
    if (describeUnsaved(_unsaved).empty())
        _viewer.setDone(true);
    else
        _question.askToClose(_unsaved, _session.unkeptPoints().empty());
    show();
    _viewer.requestRedraw();
}

void EditKeys::update()
{
    const bool isNews = hasNews();
    if (_mentionsEnd && Clock::now() > *_mentionsEnd) _mentions.clear();
    if (const std::optional<VelOsgDBBrx::EditOutcome> outcome = _session.poll()) takeOutcome(*outcome);
    goOn();
    _tools.update();
    if (const std::string message = _tools.takeMessage(); !message.empty()) _report = {message};
    _working = working();
    if (!_working.empty()) _report = {_working};
    if (!_working.empty() && !_meanwhile.empty()) _report.push_back(_meanwhile);
    if (isNews || _tools.tool()) show();
}

/// Empty where nothing runs.
std::string EditKeys::working() const
{
    if (!_session.isBusy()) return "";
    const std::optional<double> progress = _session.progress();
    if (!progress) return "working ...";
    return "working ... " + std::to_string(static_cast<int>(100 * *progress)) + " %, Esc cancels";
}

void EditKeys::takeOutcome(const VelOsgDBBrx::EditOutcome& outcome)
{
    _report = describe(outcome);
    if (outcome.classes && !_scene.previews().empty() && !_scene.clouds().empty())
        _report.push_back("points of previews were left out: their stores are being built");
    _unsaved = _session.unsavedPoints();
    _counts = outcome.classes;
    if (_shapeInUse && outcome.ok) _tools.putDown();
    _shapeInUse = false;
    if (outcome.isBusyElsewhere || outcome.isNotJournalled) _question.askToEditAnyway(outcome.message);
    _meanwhile.clear();
    if (_next && !outcome.ok) {
        _report.push_back("what was to follow is not done: it " + std::string(_next->operation().words));
        _next.reset();
    }
    const bool isLast = !_next && _strokes.empty();
    const bool closing = std::exchange(_closing, _closing && outcome.ok && !isLast);
    if (closing && outcome.ok && isLast) askToClose();
}

std::vector<std::string> EditKeys::panel() const
{
    std::vector<std::string> lines;
    if (!_editing) {
        append(lines, _report);
        append(lines, firstOf(_mentions));
        return lines;
    }
    lines = {"EDIT  to class " + classText(static_cast<unsigned>(_classes.toClass)) + ", from " +
             formatClasses(_classes.fromClasses) + "   (E ends)"};
    if (!_scene.shownClasses().all())
        lines.push_back("shown are " + formatClasses(_scene.shownClasses()) + " alone   (" +
                        keyOf("showClasses") + ")");
    if (_scene.editsUndrawn())
        lines.push_back("! EDITS POINTS THAT ARE NOT DRAWN TOO (" + keyOf("reach") + " ends that)");
    if (_scene.editLimits().front)
        lines.push_back("! EDITS THE FRONT SURFACE ALONE (" + keyOf("depth") + " ends that)");
    if (const std::string names = limitingAttributes(_scene); !names.empty())
        lines.push_back("! EDITS ONLY POINTS WITH CERTAIN: " + names + " (the panel ends that)");
    append(lines, hints());
    if (!_report.empty() || !_mentions.empty()) lines.push_back("");
    append(lines, _report);
    append(lines, firstOf(_mentions));
    if (const uint64_t unsaved = totalOf(_unsaved); unsaved > 0)
        lines.push_back("not saved: " + grouped(unsaved) + " (" + keyOf("save") + " saves)");
    append(lines, firstOf(_warnings));
    return lines;
}

std::vector<std::string> EditKeys::hints() const
{
    if (_typing.isOpen()) return _typing.hints();
    const Tool* const tool = _tools.tool();
    if (!tool) return {"a: polygon, A: rectangle, b: brush, Enter: the last tool"};
    if (_tools.brush()) return {tool->hint(), "it " + std::string(_painting.operation().words)};
    return {tool->isClosed() ? hintOfShape(_tools.grow() != nullptr) : tool->hint()};
}

void EditKeys::show()
{
    _overlay->setPanel(panel());
    _overlay->setQuestion(_question.lines());
    _overlay->setDrawing(_tools.tool() ? _tools.tool()->preview() : ToolPreview());
}

void EditKeys::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("E", "Edit mode on / off");
    for (const ToolKind& kind : toolTable())
        usage.addKeyboardMouseBinding(keyName(kind.key), kind.words);
    usage.addKeyboardMouseBinding("Backspace", "take the last corner away");
    usage.addKeyboardMouseBinding("Enter, right click", "close what is drawn; Enter: the last tool again");
    usage.addKeyboardMouseBinding("Insert", "the brush in pixels / in units of the world");
    usage.addKeyboardMouseBinding("0 ... 255", "the to-class, by its digits");
    usage.addKeyboardMouseBinding("Ctrl+Z", "undo, as z");
    usage.addKeyboardMouseBinding("Ctrl+Y / Ctrl+Shift+Z", "redo, as y");
    usage.addKeyboardMouseBinding("F", "from-classes: which classes may change");
    for (const auto& [keys, words] : listKeys(Key::EDITING))
        usage.addKeyboardMouseBinding(keys, words);
}

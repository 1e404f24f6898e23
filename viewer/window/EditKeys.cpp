#include "viewer/window/EditKeys.h"

#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/edit/EditText.h"
#include "viewer/window/WindowStage.h"

#include <osgGA/CameraManipulator>
#include <osgViewer/View>

#include <algorithm>
#include <cmath>

using osgGA::GUIEventAdapter;

namespace {

constexpr double kDigitsApart = 2; // seconds after which a digit begins another class
constexpr int kPaintKey = 'K';     // what a brush does to begin with
constexpr size_t kStoresInQuestion = 8;
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

/// What keys do to a shape, some to a line.
std::vector<std::string> hintsOfShape()
{
    constexpr size_t kKeysInLine = 3;
    std::vector<std::string> lines;
    size_t count = 0;
    for (const Operation& operation : operations())
        for (const Key& key : operation.keys) {
            if (!operation.outline()) continue;
            if (count++ % kKeysInLine == 0)
                lines.emplace_back();
            else
                lines.back() += ", ";
            lines.back() += key.name() + " " + key.hint;
        }
    return lines;
}

void append(std::vector<std::string>& lines, const std::vector<std::string>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
}

} // namespace

EditKeys::EditKeys(SceneEditing& session, Scene& scene, osgViewer::Viewer& viewer, Views& views,
                   Overlay& overlay, ClassChoice& classes, Measuring& measuring)
    : _session(session), _scene(scene), _viewer(viewer), _views(views), _classes(classes),
      _stage(windowStage(scene, session, views, measuring)), _overlay(&overlay), _tools(scene, views),
      _painting(requestOf(*findKey(kPaintKey, Key::EDITING), scene))
{
}

bool EditKeys::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (_tools.dropFromOtherView()) {
        _report = {"the picture has moved: draw again"};
        show();
    }
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
    if (_question != Question::NONE) return true;
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
    if (_question != Question::NONE) {
        answer(key);
        return true;
    }
    if (_typed) {
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
    if (key != 'E') return dropReport(key);
    _editing = true;
    return true;
}

bool EditKeys::dropReport(int key)
{
    if (key != GUIEventAdapter::KEY_Escape || _report.empty()) return false;
    _report.clear();
    return true;
}

void EditKeys::say(const std::vector<std::string>& lines)
{
    append(_report, lines);
    show();
    _viewer.requestRedraw();
}

void EditKeys::answer(int key)
{
    const Question asked = _question;
    if (key == GUIEventAdapter::KEY_Escape) {
        _question = Question::NONE;
        _strokes.clear();
    }
    if (asked == Question::SURE && key == _asked->key->key) {
        _question = Question::NONE;
        start(requestOf(*_asked, _scene));
    }
    if (asked == Question::REFUSED && key == 'e') {
        _question = Question::NONE;
        _session.editAnyway();
        _again();
    }
    if (asked == Question::CLOSE && key == 's') {
        _question = Question::NONE;
        _closing = _session.save();
    }
    if (asked == Question::CLOSE && key == 'k') {
        _question = Question::NONE;
        _viewer.setDone(true);
    }
    if (asked == Question::CLOSE && key == 'd') {
        _question = Question::NONE;
        _closing = _session.dropUnsaved();
    }
}

void EditKeys::type(int key)
{
    std::string& text = _typed->text;
    if (isDigit(key) || key == ',' || (key == '-' && text.empty()))
        text += static_cast<char>(key);
    else if (key == GUIEventAdapter::KEY_BackSpace && !text.empty())
        text.pop_back();
    else if (key == GUIEventAdapter::KEY_Return)
        acceptTyped();
    else if (key == GUIEventAdapter::KEY_Escape)
        _typed.reset();
}

void EditKeys::acceptTyped()
{
    std::optional<ClassSet> classes = parseClasses(_typed->text);
    if (!classes) {
        _report = {_typed->text + ": give classes of 0 to 255, such as 2,6 or -7,18"};
        return;
    }
    if (_typed->after) {
        Request request = requestOf(*_typed->after, _scene);
        request.set(_typed->after->key->typed, *classes);
        apply(request, false);
    } else {
        _classes.fromClasses = *classes;
    }
    _typed.reset();
    _report.clear();
}

void EditKeys::warn(const std::string& line)
{
    _warnings.push_back(line);
    if (!_editing) say({line});
}

bool EditKeys::editByKey(int key, const GUIEventAdapter& event)
{
    if (isDigit(key)) {
        typeDigit(key - '0', event.getTime());
        return true;
    }
    _digitTime.reset();
    if (const std::optional<PressedKey> pressed = findKey(key, Key::EDITING))
        press(*pressed);
    else if (const ToolKind* kind = findTool(key))
        takeTool(*kind);
    else if (key == GUIEventAdapter::KEY_Return && _tools.takeAgain(event))
        stopCamera();
    else if (key == 'F')
        _typed = TypedClasses();
    else if (key == 'E')
        leave();
    else
        return dropReport(key);
    return true;
}

void EditKeys::typeDigit(int digit, double time)
{
    const int longer = 10 * _classes.toClass + digit;
    const bool goesOn = _digitTime && time - *_digitTime <= kDigitsApart && longer <= 255;
    _classes.toClass = goesOn ? longer : digit;
    _digitTime = time;
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
        _typed = TypedClasses{pressed, ""};
    } else if (pressed.operation->question) {
        _question = Question::SURE;
        _asked = pressed;
    } else {
        start(requestOf(pressed, _scene));
    }
}

void EditKeys::act(const Request& request)
{
    const Operation& operation = request.operation();
    if (operation.question)
        press({&operation, &operation.keys.front()});
    else
        start(request);
    show();
    _viewer.requestRedraw();
}

void EditKeys::start(Request request)
{
    const Operation& operation = request.operation();
    const bool hasPlace =
        request.has("points") || (operation.outline() && request.has(operation.outline()->name));
    const bool needsPlace = operation.outline() && !hasPlace;
    if (needsPlace && _tools.brush() && operation.outline()->type == Parameter::POLYGON) {
        _painting = request;
        _report = {"the brush " + std::string(operation.words) + " from now on"};
        return;
    }
    if (needsPlace && !setPlace(request)) return;
    setClasses(request);
    const bool isDryRun = operation.find("dryRun") && request.get<bool>("dryRun");
    apply(request, needsPlace && !isDryRun);
}

/// What is drawn, pointed at or selected becomes the place of an operation. False where there is none.
bool EditKeys::setPlace(Request& request)
{
    const Operation& operation = request.operation();
    const Parameter& outline = *operation.outline();
    const bool takesSelected = operation.find("selected") && !request.has("side");
    Tool* const tool = _tools.tool();
    if (!tool && takesSelected && _session.hasSelection()) {
        request.set("selected", true);
        _session.setSight(_views.main());
        return true;
    }
    if (!tool) {
        _report = {"draw a polygon (a) or a rectangle (A) first" +
                   std::string(takesSelected ? ", or select points (" + keyOf("select") + ")" : "")};
        return false;
    }
    _session.setSight(_tools.sight());
    if (outline.type == Parameter::POLYGON) tool->close();
    if (outline.type == Parameter::POLYGON && !tool->isClosed() && tool->outline().size() < 3) {
        _report = {tool->missing()};
        return false;
    }
    if (!_tools.grow()) {
        request.set(outline.name, Outline(tool->outline()));
        return true;
    }
    if (!operation.find("points")) {
        _report = {"what grows cannot be selected; draw around it"};
        return false;
    }
    VelOsgDBBrx::PointSelection selection;
    selection.place = _tools.grown();
    selection.outside = request.has("side") && request.get<std::string>("side") == "outside";
    selection.attributes = _scene.editLimits().attributes;
    request.set("points", selection);
    return true;
}

/// The classes of the panel go to the parameters that can hold them.
void EditKeys::setClasses(Request& request) const
{
    const auto holds = [&](const char* name, Parameter::Type type) {
        const Parameter* parameter = request.operation().find(name);
        return parameter && parameter->type == type;
    };
    if (holds("to", Parameter::WHOLE) && !request.has("to")) request.set("to", _classes.toClass);
    if (holds("from", Parameter::CLASSES) && !request.has("from") && !_classes.fromClasses.all())
        request.set("from", _classes.fromClasses);
}

/// Takes what the brush has covered, as it is seen now, to be edited.
void EditKeys::paint()
{
    Request request = _painting;
    const Outline stroke(_tools.brush()->outline());
    _tools.brush()->drop();
    _session.setSight(_tools.sight());
    setClasses(request);
    const bool isOutside = request.has("side") && request.get<std::string>("side") == "outside";
    if (!request.operation().find("points")) {
        request.set(request.operation().outline()->name, stroke);
        apply(request, false);
        return;
    }
    VelOsgDBBrx::PointSelection selection;
    if (const std::string problem = _session.find(stroke, isOutside, selection); !problem.empty()) {
        _report = {problem};
        return;
    }
    if (isOutside) request.set("side", std::string("inside")); // the selection says it
    request.set("points", selection);
    _strokes.push_back(request);
    paintNext();
}

void EditKeys::paintNext()
{
    if (_strokes.empty() || _session.isBusy() || _question != Question::NONE) return;
    const Request request = _strokes.front();
    _strokes.pop_front();
    apply(request, false);
}

void EditKeys::apply(const Request& request, bool usesShape)
{
    const Begun begun = carryOut(request, _stage);
    if (begun.state == Begun::BUSY) {
        _report = {"the last operation is still running"};
        return;
    }
    if (begun.state == Begun::DONE) return;
    _again = [this, request, usesShape] { apply(request, usesShape); };
    _shapeInUse = usesShape;
    _working.clear();
    update();
}

void EditKeys::askToClose()
{
    _closing = _session.isBusy();
    if (_closing) return;
    _unsaved = _session.unsavedPoints();
    if (describeUnsaved(_unsaved).empty())
        _viewer.setDone(true);
    else
        _question = Question::CLOSE;
    show();
    _viewer.requestRedraw();
}

void EditKeys::update()
{
    const bool isNews = hasNews();
    if (const std::optional<VelOsgDBBrx::EditOutcome> outcome = _session.poll()) takeOutcome(*outcome);
    paintNext();
    _tools.update();
    if (const std::string message = _tools.takeMessage(); !message.empty()) _report = {message};
    _working = working();
    if (!_working.empty()) _report = {_working};
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
    _unsaved = _session.unsavedPoints();
    _counts = outcome.classes;
    if (_shapeInUse && outcome.ok) _tools.putDown();
    _shapeInUse = false;
    if (outcome.isBusyElsewhere || outcome.isNotJournalled) {
        _question = Question::REFUSED;
        _refused = outcome.message;
    }
    const bool closing = _closing;
    _closing = false;
    if (closing && outcome.ok) askToClose();
}

std::vector<std::string> EditKeys::panel() const
{
    if (!_editing) return _report;
    std::vector<std::string> lines = {"EDIT  to class " + classText(static_cast<unsigned>(_classes.toClass)) +
                                      ", from " + formatClasses(_classes.fromClasses) + "   (E ends)"};
    if (!_scene.shownClasses().all())
        lines.push_back("shown are " + formatClasses(_scene.shownClasses()) + " alone   (" +
                        keyOf("showClasses") + ")");
    if (_scene.editsUndrawn())
        lines.push_back("! EDITS POINTS THAT ARE NOT DRAWN TOO (" + keyOf("reach") + " ends that)");
    if (_scene.editLimits().front)
        lines.push_back("! EDITS THE FRONT SURFACE ALONE (" + keyOf("depth") + " ends that)");
    append(lines, hints());
    if (!_report.empty()) lines.push_back("");
    append(lines, _report);
    if (const uint64_t unsaved = totalOf(_unsaved); unsaved > 0)
        lines.push_back("not saved: " + grouped(unsaved) + " (" + keyOf("save") + " saves)");
    append(lines, _warnings);
    return lines;
}

std::vector<std::string> EditKeys::hints() const
{
    if (_typed)
        return {std::string(_typed->after ? _typed->after->key->hint : "classes that may change") + ": " +
                    _typed->text + "_",
                "2,6 or -7,18 for all but these; nothing for all; Enter, Esc"};
    const Tool* const tool = _tools.tool();
    if (!tool) return {"a: polygon, A: rectangle, b: brush, Enter: the last tool"};
    if (_tools.brush()) {
        std::vector<std::string> lines = tool->hints();
        lines.front() += std::string(": ") + _painting.operation().words;
        return lines;
    }
    if (!tool->isClosed()) return tool->hints();
    return hintsOfShape();
}

std::vector<std::string> EditKeys::question() const
{
    if (_question == Question::SURE) {
        const Operation& operation = *_asked->operation;
        return {operation.question, "", _asked->key->name() + ": " + operation.answer + "     Esc: go on"};
    }
    if (_question == Question::REFUSED)
        return {_refused, "",
                "e: edit all the same, with an undo that ends with this program     Esc: do not"};
    if (_question == Question::NONE) return {};
    std::vector<std::string> lines = describeUnsaved(_unsaved);
    if (lines.size() > kStoresInQuestion) {
        lines.resize(kStoresInQuestion);
        lines.push_back("...");
    }
    const char* const keep =
        _session.unkeptPoints().empty() ? "k: close, the journal keeps them" : "k: close, they are lost";
    append(lines,
           {"", std::string("s: save and close     ") + keep, "d: drop them and close     Esc: go on"});
    return lines;
}

void EditKeys::show()
{
    _overlay->setPanel(panel());
    _overlay->setQuestion(question());
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

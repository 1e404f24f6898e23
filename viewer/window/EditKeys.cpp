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

constexpr double kDragPixels = 3;  // a hand is not still
constexpr double kDigitsApart = 2; // seconds after which a digit begins another class
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

/// In pixels as of `Outline`; events count y up.
osg::Vec2d place(const GUIEventAdapter& event)
{
    return osg::Vec2d(event.getX(), event.getYmin() + event.getYmax() - event.getY());
}

/// Whether both show the same picture: depth is left out, as near and far plane change from frame to frame.
bool isSame(const WindowView& a, const WindowView& b)
{
    constexpr double kRounding = 1e-9;
    if (a.width != b.width || a.height != b.height) return false;
    for (int row = 0; row < 4; ++row)
        for (const int column : {0, 1, 3}) {
            const double difference = std::abs(a.vpw(row, column) - b.vpw(row, column));
            if (difference > kRounding * std::max(1.0, std::abs(a.vpw(row, column)))) return false;
        }
    return true;
}

/// What keys do to a shape, some to a line.
std::vector<std::string> hintsOfShape()
{
    constexpr size_t kKeysInLine = 4;
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
                   Overlay& overlay, ClassChoice& classes)
    : _session(session), _scene(scene), _viewer(viewer), _views(views), _classes(classes),
      _stage(windowStage(scene, session, views)), _overlay(&overlay)
{
}

bool EditKeys::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    dropShapeOfOtherView();
    bool handled = false;
    switch (event.getEventType()) {
    case GUIEventAdapter::FRAME:
        update();
        break;
    case GUIEventAdapter::KEYDOWN:
        handled = !event.getHandled() && handleKey(event, action);
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
    if (!_shape) return false;
    const osg::Vec2d mouse = place(event);
    _shape->moveTo(mouse);
    switch (event.getEventType()) {
    case GUIEventAdapter::PUSH:
    case GUIEventAdapter::DOUBLECLICK:
        if (event.getButton() == GUIEventAdapter::RIGHT_MOUSE_BUTTON) closeShape();
        if (event.getButton() != GUIEventAdapter::LEFT_MOUSE_BUTTON) break;
        if (_shape->vertices().empty()) {
            _shapeSight = _views.under(event.getX(), event.getY());
            _shapeView = windowViewOf(*_shapeSight.camera);
        }
        _shape->add(mouse);
        break;
    case GUIEventAdapter::RELEASE: // a rectangle can be drawn by one drag
        if (_shape->kind() == DrawnShape::RECTANGLE && _shape->vertices().size() == 1 &&
            (mouse - _shape->vertices().front()).length() > kDragPixels) {
            _shape->add(mouse);
        }
        break;
    default:
        break;
    }
    return true;
}

void EditKeys::closeShape()
{
    if (_shape->close()) return;
    _report = {_shape->kind() == DrawnShape::POLYGON ? "a polygon needs at least three vertices"
                                                     : "a rectangle needs two corners"};
}

bool EditKeys::handleKey(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
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
    if (_editing) return (_shape && drawByKey(key)) || editByKey(key, event, action);
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
    if (key == GUIEventAdapter::KEY_Escape) _question = Question::NONE;
    if (asked == Question::SURE && key == _asked->key->key) {
        _question = Question::NONE;
        start(*_asked);
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

bool EditKeys::drawByKey(int key)
{
    switch (key) {
    case GUIEventAdapter::KEY_BackSpace:
        _shape->dropLast();
        return true;
    case GUIEventAdapter::KEY_Return:
        closeShape();
        return true;
    case GUIEventAdapter::KEY_Escape:
        _shape.reset();
        return true;
    default:
        return false;
    }
}

void EditKeys::warn(const std::string& line)
{
    _warnings.push_back(line);
    if (!_editing) say({line});
}

bool EditKeys::editByKey(int key, const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (isDigit(key)) {
        typeDigit(key - '0', event.getTime());
        return true;
    }
    _digitTime.reset();
    if (const std::optional<PressedKey> pressed = findKey(key, Key::EDITING))
        press(*pressed);
    else if (key == 'a' || key == 'A')
        beginShape(key == 'a' ? DrawnShape::POLYGON : DrawnShape::RECTANGLE, event, action);
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

void EditKeys::beginShape(DrawnShape::Kind kind, const GUIEventAdapter& event,
                          osgGA::GUIActionAdapter& action)
{
    _shape.emplace(kind);
    _shape->moveTo(place(event));
    _shapeSight = _views.under(event.getX(), event.getY());
    _shapeInUse = false; // of the running operation's shape, which this one replaces
    _report.clear();
    // A camera that was thrown stands still from now on.
    if (osgGA::CameraManipulator* manipulator = _viewer.getCameraManipulator())
        manipulator->init(event, action);
}

void EditKeys::leave()
{
    _editing = false;
    _shape.reset();
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
        start(pressed);
    }
}

void EditKeys::act(const Request& request)
{
    const Operation& operation = request.operation();
    if (operation.question)
        press({&operation, &operation.keys.front()});
    else
        apply(request, false);
    show();
    _viewer.requestRedraw();
}

void EditKeys::start(const PressedKey& pressed)
{
    const Operation& operation = *pressed.operation;
    const Parameter* const outline = operation.outline();
    Request request = requestOf(pressed, _scene);
    const bool takesSelected = operation.find("selected") && !request.has("side");
    if (outline && !_shape && takesSelected && _session.hasSelection()) {
        request.set("selected", true);
        _session.setSight(_views.main());
    } else if (outline) {
        if (!_shape) {
            _report = {"draw a polygon (a) or a rectangle (A) first" +
                       std::string(takesSelected ? ", or select points (" + keyOf("select") + ")" : "")};
            return;
        }
        if (outline->type == Parameter::POLYGON) _shape->close();
        _session.setSight(_shapeSight);
        request.set(outline->name, Outline(_shape->vertices()));
    }
    // The classes of the panel go to the parameters that can hold them.
    const auto holds = [&operation](const char* name, Parameter::Type type) {
        const Parameter* parameter = operation.find(name);
        return parameter && parameter->type == type;
    };
    if (holds("to", Parameter::WHOLE)) request.set("to", _classes.toClass);
    if (holds("from", Parameter::CLASSES) && !_classes.fromClasses.all())
        request.set("from", _classes.fromClasses);
    apply(request, outline && !pressed.key->keepsShape);
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
    _working = working();
    if (!_working.empty()) _report = {_working};
    if (isNews || _shape) show();
}

/// Empty where nothing runs.
std::string EditKeys::working() const
{
    if (!_session.isBusy()) return "";
    const std::optional<double> progress = _session.progress();
    if (!progress) return "working ...";
    return "working ... " + std::to_string(static_cast<int>(100 * *progress)) + " %, Esc cancels";
}

/// A shape belongs to the picture that it was drawn over.
void EditKeys::dropShapeOfOtherView()
{
    if (!_shape || _shape->vertices().empty()) return;
    const std::optional<WindowView> view = windowViewOf(*_shapeSight.camera);
    if (view && _shapeView && isSame(*view, *_shapeView)) return;
    _shape.reset();
    _report = {"the picture has moved: draw again"};
    show();
}

void EditKeys::takeOutcome(const VelOsgDBBrx::EditOutcome& outcome)
{
    _report = describe(outcome);
    _unsaved = _session.unsavedPoints();
    if (_shapeInUse && outcome.ok) _shape.reset();
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
    std::vector<std::string> lines = {
        "EDIT   (E ends editing, h lists the keys)",
        "to class:      " + classText(static_cast<unsigned>(_classes.toClass)) + "   (type its number)",
        "from classes:  " + formatClasses(_classes.fromClasses) + "   (F)",
        "classes shown: " + formatClasses(_scene.shownClasses()) + "   (" + keyOf("showClasses") + ")"};
    if (_scene.editsUndrawn())
        lines.push_back("! EDITS POINTS THAT ARE NOT DRAWN TOO (" + keyOf("reach") + " ends that)");
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
    if (!_shape) return {"a draws a polygon, A a rectangle"};
    const std::string count = std::to_string(_shape->vertices().size());
    if (!_shape->isClosed())
        return {_shape->kind() == DrawnShape::POLYGON ? "polygon of " + count + " vertices: click to add,"
                                                      : "rectangle: click or drag two corners,",
                "Backspace drops, Enter or right click closes, Esc cancels"};
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
    const bool closed = _shape && _shape->isClosed();
    _overlay->setOutline(_shape ? _shape->preview() : std::vector<osg::Vec2d>(), closed);
}

void EditKeys::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("E", "Edit mode on / off");
    usage.addKeyboardMouseBinding("a / A", "draw a polygon / a rectangle; click the corners");
    usage.addKeyboardMouseBinding("Backspace", "take the last corner away");
    usage.addKeyboardMouseBinding("Enter, right click", "close the polygon");
    usage.addKeyboardMouseBinding("0 ... 255", "the to-class, by its digits");
    usage.addKeyboardMouseBinding("Ctrl+Z", "undo, as z");
    usage.addKeyboardMouseBinding("Ctrl+Y / Ctrl+Shift+Z", "redo, as y");
    usage.addKeyboardMouseBinding("F", "from-classes: which classes may change");
    for (const auto& [keys, words] : listKeys(Key::EDITING))
        usage.addKeyboardMouseBinding(keys, words);
}

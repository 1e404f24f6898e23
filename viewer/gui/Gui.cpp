#include "viewer/gui/Gui.h"

#include "viewer/gui/Keyboard.h"

#include <imgui.h>
#include <imgui_internal.h>
#include <osg/GraphicsContext>

#include <algorithm>
#include <cfloat>
#include <chrono>

using osgGA::GUIEventAdapter;

namespace {

constexpr int kSpecialKeys = 256; ///< of Dear ImGui's table: keys that type nothing stand from here on

/// The place of a key in Dear ImGui's table.
int placeOf(int key)
{
    if (key >= 0xff00 && key <= 0xffff) return kSpecialKeys + (key & 0xff);
    if (key >= 'A' && key <= 'Z') return key - 'A' + 'a';
    return key >= 0 && key < kSpecialKeys ? key : 0;
}

void mapKeys(ImGuiIO& io)
{
    constexpr std::pair<ImGuiKey, int> kKeys[] = {{ImGuiKey_Tab, GUIEventAdapter::KEY_Tab},
                                                  {ImGuiKey_LeftArrow, GUIEventAdapter::KEY_Left},
                                                  {ImGuiKey_RightArrow, GUIEventAdapter::KEY_Right},
                                                  {ImGuiKey_UpArrow, GUIEventAdapter::KEY_Up},
                                                  {ImGuiKey_DownArrow, GUIEventAdapter::KEY_Down},
                                                  {ImGuiKey_PageUp, GUIEventAdapter::KEY_Page_Up},
                                                  {ImGuiKey_PageDown, GUIEventAdapter::KEY_Page_Down},
                                                  {ImGuiKey_Home, GUIEventAdapter::KEY_Home},
                                                  {ImGuiKey_End, GUIEventAdapter::KEY_End},
                                                  {ImGuiKey_Insert, GUIEventAdapter::KEY_Insert},
                                                  {ImGuiKey_Delete, GUIEventAdapter::KEY_Delete},
                                                  {ImGuiKey_Backspace, GUIEventAdapter::KEY_BackSpace},
                                                  {ImGuiKey_Space, GUIEventAdapter::KEY_Space},
                                                  {ImGuiKey_Enter, GUIEventAdapter::KEY_Return},
                                                  {ImGuiKey_Escape, GUIEventAdapter::KEY_Escape},
                                                  {ImGuiKey_KeyPadEnter, GUIEventAdapter::KEY_KP_Enter},
                                                  {ImGuiKey_A, 'a'},
                                                  {ImGuiKey_C, 'c'},
                                                  {ImGuiKey_V, 'v'},
                                                  {ImGuiKey_X, 'x'},
                                                  {ImGuiKey_Y, 'y'},
                                                  {ImGuiKey_Z, 'z'}};
    for (const auto& [name, key] : kKeys)
        io.KeyMap[name] = placeOf(key);
}

/// 0 left, 1 right, 2 middle, as Dear ImGui counts; -1 for another one.
int buttonOf(const GUIEventAdapter& event)
{
    switch (event.getButton()) {
    case GUIEventAdapter::LEFT_MOUSE_BUTTON:
        return ImGuiMouseButton_Left;
    case GUIEventAdapter::RIGHT_MOUSE_BUTTON:
        return ImGuiMouseButton_Right;
    case GUIEventAdapter::MIDDLE_MOUSE_BUTTON:
        return ImGuiMouseButton_Middle;
    default:
        return -1;
    }
}

/// They type nothing in any field, so that they always do what they do elsewhere.
bool isFunctionKey(int key)
{
    return key >= GUIEventAdapter::KEY_F1 && key <= GUIEventAdapter::KEY_F35;
}

/// Escape closes a list that is open to choose from; true when there was one.
bool closeList(int key)
{
    if (key != GUIEventAdapter::KEY_Escape || !ImGui::IsPopupOpen("", ImGuiPopupFlags_AnyPopupId))
        return false;
    ImGui::ClosePopupToLevel(0, true);
    return true;
}

void takeModifiers(const GUIEventAdapter& event)
{
    ImGuiIO& io = ImGui::GetIO();
    const int modifiers = event.getModKeyMask();
    io.KeyCtrl = (modifiers & GUIEventAdapter::MODKEY_CTRL) != 0;
    io.KeyShift = (modifiers & GUIEventAdapter::MODKEY_SHIFT) != 0;
    io.KeyAlt = (modifiers & GUIEventAdapter::MODKEY_ALT) != 0;
}

} // namespace

Gui::Gui(osg::Camera& camera, float unit)
    : _unit(unit), _context(std::make_shared<GuiContext>(unit)), _drawing(new GuiDrawing(_context))
{
    const VelThreads::Lock lock(GuiContext::mutex);
    _context->makeCurrent();
    ImGuiIO& io = ImGui::GetIO();
    mapKeys(io);
    io.ClipboardUserData = this;
    io.SetClipboardTextFn = copy;
    io.GetClipboardTextFn = paste;
    drawAfter(camera);
}

Gui::~Gui()
{
    if (_camera.valid()) _camera->removePostDrawCallback(_drawing);
}

void Gui::giveBack(osg::State& state) const
{
    _drawing->releaseGLObjects(&state);
}

void Gui::copy(void* gui, const char* text)
{
    static_cast<Gui*>(gui)->_clipboard.setText(text);
}

const char* Gui::paste(void* gui)
{
    auto* const self = static_cast<Gui*>(gui);
    self->_pasted = self->_clipboard.text();
    return self->_pasted.c_str();
}

void Gui::drawAfter(osg::Camera& camera)
{
    if (_camera.valid()) _camera->removePostDrawCallback(_drawing);
    camera.addPostDrawCallback(_drawing);
    _camera = &camera;
}

void Gui::add(Part part)
{
    _parts.push_back(std::move(part));
}

void Gui::later(std::function<void()> action)
{
    _later.push_back(std::move(action));
}

double Gui::now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Gui::wakeAfter(double seconds)
{
    const double time = now() + seconds;
    if (_wakeTime == 0 || time < _wakeTime) _wakeTime = time;
}

double Gui::untilWanted(double longest) const
{
    return _wakeTime == 0 ? longest : std::clamp(_wakeTime - now(), 0.0, longest);
}

void Gui::takeLeft(float width)
{
    _taken.push_back({_area.x, _area.y, width, _area.height});
    _area.x += width;
    _area.width -= width;
}

void Gui::takeBottom(float height)
{
    _area.height -= height;
    _taken.push_back({_area.x, _area.y + _area.height, _area.width, height});
}

void Gui::update()
{
    if (_wakeTime > 0 && now() >= _wakeTime) _wakeTime = 0;
    if (_framesWanted > 0) --_framesWanted;
    {
        const VelThreads::Lock lock(GuiContext::mutex);
        _context->makeCurrent();
        callParts();
        _drawing->take(_taken);
    }
    doLater();
}

void Gui::callParts()
{
    const osg::GraphicsContext* context = _camera.valid() ? _camera->getGraphicsContext() : nullptr;
    const osg::GraphicsContext::Traits* traits = context ? context->getTraits() : nullptr;
    ImGuiIO& io = ImGui::GetIO();
    io.DisplaySize =
        traits ? ImVec2(static_cast<float>(traits->width), static_cast<float>(traits->height)) : ImVec2(1, 1);
    const double time = now();
    io.DeltaTime = std::clamp(static_cast<float>(time - _lastTime), 1e-5f, 1.0f);
    _lastTime = time;
    _taken.clear();
    _area = {0, 0, io.DisplaySize.x, io.DisplaySize.y};
    ImGui::NewFrame();
    for (const Part& part : _parts)
        part();
    ImGui::Render();
}

/// Not under the lock: what is done may wait for the thread that draws.
void Gui::doLater()
{
    std::vector<std::function<void()>> actions;
    actions.swap(_later);
    for (const auto& action : actions)
        action();
    if (!actions.empty()) _framesWanted = kFramesToFit;
}

bool Gui::handle(osgGA::Event* event, osg::Object* object, osg::NodeVisitor* visitor)
{
    const bool isOurs = osgGA::GUIEventHandler::handle(event, object, visitor);
    GUIEventAdapter* const gui = event->asGUIEventAdapter();
    if (!isOurs && gui &&
        (gui->getEventType() == GUIEventAdapter::KEYDOWN || gui->getEventType() == GUIEventAdapter::KEYUP))
        gui->setKey(latinTwin(*gui));
    return isOurs;
}

bool Gui::handle(const GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    bool isOurs = false;
    {
        const VelThreads::Lock lock(GuiContext::mutex);
        _context->makeCurrent();
        isOurs = dispatch(event);
    }
    doLater();
    if (isOurs) {
        _framesWanted = kFramesToFit;
        action.requestRedraw();
    }
    return isOurs;
}

bool Gui::dispatch(const GUIEventAdapter& event)
{
    switch (event.getEventType()) {
    case GUIEventAdapter::PUSH:
    case GUIEventAdapter::DOUBLECLICK:
        moveTo(event);
        if (_ownButtons == 0) takeModifiers(event);
        return push(buttonOf(event));
    case GUIEventAdapter::RELEASE:
        moveTo(event);
        return release(buttonOf(event));
    case GUIEventAdapter::DRAG:
    case GUIEventAdapter::MOVE:
        moveTo(event);
        return _ownButtons != 0 || (_sceneButtons == 0 && ImGui::GetIO().WantCaptureMouse);
    case GUIEventAdapter::SCROLL:
        moveTo(event);
        return scroll(event);
    case GUIEventAdapter::KEYDOWN:
    case GUIEventAdapter::KEYUP:
        return key(event);
    default:
        return false;
    }
}

/// While the scene has the mouse, it is nowhere for our windows.
void Gui::moveTo(const GUIEventAdapter& event)
{
    ImGuiIO& io = ImGui::GetIO();
    io.MousePos = _sceneButtons == 0 ? ImVec2(event.getX(), event.getYmin() + event.getYmax() - event.getY())
                                     : ImVec2(-FLT_MAX, -FLT_MAX);
}

/// Dear ImGui sees a button in a frame of its own, so that a click between two drawn frames is one.
bool Gui::push(int button)
{
    if (button < 0) return false;
    callParts(); // finds what is under the mouse
    ImGuiIO& io = ImGui::GetIO();
    if (_sceneButtons != 0 || !io.WantCaptureMouse) {
        _sceneButtons |= 1u << button;
        ImGui::SetWindowFocus(nullptr); // a click on the scene ends typing
        return false;
    }
    _ownButtons |= 1u << button;
    io.MouseDown[button] = true;
    callParts();
    return true;
}

bool Gui::release(int button)
{
    if (button < 0) return false;
    const bool isOurs = (_ownButtons & 1u << button) != 0;
    _ownButtons &= ~(1u << button);
    _sceneButtons &= ~(1u << button);
    if (!isOurs) return false;
    ImGui::GetIO().MouseDown[button] = false;
    callParts();
    return true;
}

bool Gui::scroll(const GUIEventAdapter& event)
{
    callParts();
    ImGuiIO& io = ImGui::GetIO();
    if (!io.WantCaptureMouse) return false;
    switch (event.getScrollingMotion()) {
    case GUIEventAdapter::SCROLL_UP:
        io.MouseWheel = 1;
        break;
    case GUIEventAdapter::SCROLL_DOWN:
        io.MouseWheel = -1;
        break;
    case GUIEventAdapter::SCROLL_LEFT:
        io.MouseWheelH = 1;
        break;
    case GUIEventAdapter::SCROLL_RIGHT:
        io.MouseWheelH = -1;
        break;
    default:
        break;
    }
    callParts();
    return true;
}

bool Gui::key(const GUIEventAdapter& event)
{
    ImGuiIO& io = ImGui::GetIO();
    if (_ownButtons == 0) takeModifiers(event); // a click is what it was when it began
    const bool isDown = event.getEventType() == GUIEventAdapter::KEYDOWN;
    // A question in the middle has the keyboard, too. WantCaptureKeyboard would not do: it tells of the frame
    // before, where a click was not over yet.
    const bool isOurs = (io.WantTextInput || ImGui::GetTopMostPopupModal()) && !isFunctionKey(event.getKey());
    if (!isOurs) return isDown && closeList(event.getKey());
    if (!isDown) return true;
    const unsigned letter = letterOf(event.getKey());
    if (!io.KeyCtrl && letter != 0) io.AddInputCharacter(letter);
    // The window system repeats a key that is held, and its release may never come: windows lose the
    // keyboard.
    bool& down = io.KeysDown[placeOf(event.getUnmodifiedKey() ? event.getUnmodifiedKey() : event.getKey())];
    down = true;
    callParts();
    down = false;
    callParts();
    return true;
}

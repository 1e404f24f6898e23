#include "tests/support/ProgramWindow.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

void pause(std::chrono::milliseconds time)
{
    std::this_thread::sleep_for(time);
}

bool samePicture(const osg::Image& a, const osg::Image& b)
{
    const size_t size = a.getTotalSizeInBytes(); // none where the window is gone
    return a.s() == b.s() && a.t() == b.t() && (size == 0 || std::memcmp(a.data(), b.data(), size) == 0);
}

/// A window may go between two calls; the calls then fail, and the program is not to end for it.
int ignoreError(Display*, XErrorEvent*)
{
    return 0;
}

KeySym symbolOf(const std::string& key)
{
    return key.size() == 1 ? static_cast<KeySym>(static_cast<unsigned char>(key[0]))
                           : XStringToKeysym(key.c_str());
}

/// The number that a program writes to a pipe as its first line; empty when there is none.
std::string readLine(int pipeEnd)
{
    std::string line;
    pollfd waiting{pipeEnd, POLLIN, 0};
    for (char letter = 0; poll(&waiting, 1, 30000) == 1 && read(pipeEnd, &letter, 1) == 1 && letter != '\n';)
        line += letter;
    return line;
}

} // namespace

/// The X server, and the connection to it.
struct ProgramWindow::Server
{
    /// It names itself on `numberPipe`, the end of a pipe for writing.
    Server(int numberPipe, int numberEnd, int width, int height)
        : server({"Xvfb", "-displayfd", std::to_string(numberPipe), "-screen", "0",
                  std::to_string(width) + "x" + std::to_string(height) + "x24", "-nolisten", "tcp"})
    {
        close(numberPipe);
        name = ":" + readLine(numberEnd);
        close(numberEnd);
        XSetErrorHandler(ignoreError);
        display = XOpenDisplay(name.c_str());
    }
    ~Server()
    {
        if (display) XCloseDisplay(display);
        server.signal(SIGTERM); // it leaves no socket then
        server.wait();
    }

    static std::unique_ptr<Server> start(int width, int height)
    {
        int ends[2];
        if (pipe(ends) != 0) throw std::runtime_error("no pipe can be made");
        fcntl(ends[0], F_SETFD, FD_CLOEXEC);
        return std::make_unique<Server>(ends[1], ends[0], width, height);
    }

    /// The first visible child of the root; 0 when there is none.
    Window findWindow() const
    {
        Window root = 0;
        Window parent = 0;
        Window* children = nullptr;
        unsigned count = 0;
        Window found = 0;
        if (!XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count)) return 0;
        for (unsigned i = 0; i < count && !found; ++i) {
            XWindowAttributes attributes;
            if (XGetWindowAttributes(display, children[i], &attributes) && attributes.map_state == IsViewable)
                found = children[i];
        }
        XFree(children);
        return found;
    }

    void flush() const
    {
        XSync(display, False);
        pause(10ms); // no hand is faster
    }

    RunningProgram server;
    std::string name;
    Display* display = nullptr;
    Window window = 0;
};

void ProgramWindow::clickCloseButton()
{
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = _server->window;
    event.xclient.message_type = XInternAtom(_server->display, "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(XInternAtom(_server->display, "WM_DELETE_WINDOW", False));
    event.xclient.data.l[1] = CurrentTime;
    XSendEvent(_server->display, _server->window, False, NoEventMask, &event);
    _server->flush();
}

namespace {

/// The program that files are dragged from, in the protocol XDND.
class DragSource
{
public:
    DragSource(Display* display, Window target)
        : _display(display), _target(target),
          _source(XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0))
    {
        Atom type = None;
        int bits = 0;
        unsigned long count = 0, left = 0;
        unsigned char* data = nullptr;
        XGetWindowProperty(display, target, atom("XdndProxy"), 0, 1, False, AnyPropertyType, &type, &bits,
                           &count, &left, &data);
        _receiver = count == 1 ? *reinterpret_cast<Window*>(data) : target;
        if (data) XFree(data);
    }
    ~DragSource() { XDestroyWindow(_display, _source); }

    bool drop(const std::string& list)
    {
        const Atom selection = atom("XdndSelection");
        XSetSelectionOwner(_display, selection, _source, CurrentTime);
        send("XdndEnter", 5L << 24, static_cast<long>(atom("text/uri-list")), None, None);
        send("XdndPosition", 0, 0, CurrentTime, static_cast<long>(atom("XdndActionCopy")));
        if (answer("XdndStatus", list) != 1) return false;
        send("XdndDrop", 0, CurrentTime, 0, 0);
        return answer("XdndFinished", list) == 1;
    }

private:
    Atom atom(const char* name) const { return XInternAtom(_display, name, False); }

    void send(const char* type, long a, long b, long c, long d) const
    {
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = _target;
        event.xclient.message_type = atom(type);
        event.xclient.format = 32;
        const long words[] = {static_cast<long>(_source), a, b, c, d};
        std::copy_n(words, 5, event.xclient.data.l);
        XSendEvent(_display, _receiver, False, NoEventMask, &event);
        XSync(_display, False);
    }

    /// What the window answers, as its second word; -1 where it does not. Meanwhile it may ask for the list.
    long answer(const char* type, const std::string& list) const
    {
        long word = -1;
        eventually([&] {
            XEvent event;
            if (XCheckTypedWindowEvent(_display, _source, SelectionRequest, &event))
                give(event.xselectionrequest, list);
            if (!XCheckTypedWindowEvent(_display, _source, ClientMessage, &event)) return false;
            if (event.xclient.message_type == atom(type)) word = event.xclient.data.l[1] & 1;
            return word >= 0;
        });
        return word;
    }

    void give(const XSelectionRequestEvent& request, const std::string& list) const
    {
        XChangeProperty(_display, request.requestor, request.property, request.target, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(list.data()), static_cast<int>(list.size()));
        XEvent event{};
        event.xselection.type = SelectionNotify;
        event.xselection.requestor = request.requestor;
        event.xselection.selection = request.selection;
        event.xselection.target = request.target;
        event.xselection.property = request.property;
        event.xselection.time = request.time;
        XSendEvent(_display, request.requestor, False, NoEventMask, &event);
        XSync(_display, False);
    }

    Display* const _display;
    const Window _target;
    const Window _source;
    Window _receiver = None;
};

} // namespace

bool ProgramWindow::drop(const std::vector<std::string>& paths)
{
    std::string list;
    for (const std::string& path : paths) {
        list += "file://";
        for (const char letter : path)
            list += letter == ' ' ? std::string("%20") : std::string(1, letter);
        list += "\r\n";
    }
    return DragSource(_server->display, _server->window).drop(list);
}

ProgramWindow::ProgramWindow(const std::vector<std::string>& words, const std::string& folder,
                             int screenWidth, int screenHeight)
    : _server(Server::start(screenWidth, screenHeight))
{
    if (!_server->display) throw std::runtime_error("no X server; is Xvfb installed?");
    // The driver behind GLX keeps 240 bytes when it is unloaded.
    _program = std::make_unique<RunningProgram>(
        words,
        std::vector<std::string>{"DISPLAY=" + _server->name, "XDG_CONFIG_HOME=" + folder + "/config",
                                 "ASAN_OPTIONS=detect_leaks=0"},
        folder);
    eventually([&] { return (_server->window = _server->findWindow()) != 0 || !_program->isRunning(); });
    if (!_server->window) throw std::runtime_error("no window: " + _program->err());
    moveTo(5, 5); // the keyboard belongs to the window under the mouse
}

ProgramWindow::~ProgramWindow() = default;

std::string ProgramWindow::title() const
{
    char* name = nullptr;
    std::string title;
    if (XFetchName(_server->display, _server->window, &name) && name) title = name;
    XFree(name);
    return title;
}

ProgramWindow::Area ProgramWindow::area() const
{
    XWindowAttributes attributes{};
    XGetWindowAttributes(_server->display, _server->window, &attributes);
    return {attributes.x, attributes.y, attributes.width, attributes.height};
}

osg::ref_ptr<osg::Image> ProgramWindow::picture() const
{
    const Area place = area();
    osg::ref_ptr<osg::Image> picture = new osg::Image;
    XImage* const pixels =
        XGetImage(_server->display, _server->window, 0, 0, static_cast<unsigned>(place.width),
                  static_cast<unsigned>(place.height), AllPlanes, ZPixmap);
    if (!pixels) return picture;
    picture->allocateImage(place.width, place.height, 1, GL_RGB, GL_UNSIGNED_BYTE);
    for (int row = 0; row < place.height; ++row)
        for (int column = 0; column < place.width; ++column) {
            const unsigned long color = XGetPixel(pixels, column, place.height - 1 - row);
            unsigned char* const rgb = picture->data(column, row);
            for (int channel = 0; channel < 3; ++channel)
                rgb[channel] = static_cast<unsigned char>(color >> (16 - 8 * channel));
        }
    XDestroyImage(pixels);
    return picture;
}

osg::ref_ptr<osg::Image> ProgramWindow::stillPicture() const
{
    constexpr int kTimes = 6;
    osg::ref_ptr<osg::Image> last = picture();
    int same = 0;
    eventually([&] {
        pause(40ms);
        const osg::ref_ptr<osg::Image> now = picture();
        same = samePicture(*now, *last) ? same + 1 : 0;
        last = now;
        return same == kTimes;
    });
    return last;
}

void ProgramWindow::press(const std::string& key)
{
    const size_t plus = key.size() > 1 ? key.find('+') : std::string::npos;
    const std::string held = key.rfind("Alt+", 0) == 0 ? "Alt_L" : "Control_L";
    if (plus != std::string::npos) down(held);
    const std::string last = plus == std::string::npos ? key : key.substr(plus + 1);
    down(last);
    up(last);
    if (plus != std::string::npos) up(held);
}

void ProgramWindow::down(const std::string& key)
{
    sendKey(key, true);
}

void ProgramWindow::up(const std::string& key)
{
    sendKey(key, false);
}

/// Shift is held around the press of a key that needs it.
void ProgramWindow::sendKey(const std::string& key, bool isDown)
{
    Display* const display = _server->display;
    const KeySym symbol = symbolOf(key);
    const KeyCode code = XKeysymToKeycode(display, symbol);
    if (code == 0) throw std::runtime_error("no key " + key);
    const bool shifted = XkbKeycodeToKeysym(display, code, 0, 0) != symbol;
    const KeyCode shift = XKeysymToKeycode(display, XStringToKeysym("Shift_L"));
    if (shifted && isDown) XTestFakeKeyEvent(display, shift, True, CurrentTime);
    XTestFakeKeyEvent(display, code, isDown, CurrentTime);
    if (shifted && !isDown) XTestFakeKeyEvent(display, shift, False, CurrentTime);
    _server->flush();
}

void ProgramWindow::sendButton(int button)
{
    for (const bool isDown : {true, false}) {
        XTestFakeButtonEvent(_server->display, static_cast<unsigned>(button), isDown, CurrentTime);
        _server->flush();
    }
}

void ProgramWindow::moveTo(int x, int y)
{
    const Area place = area();
    XTestFakeMotionEvent(_server->display, -1, place.x + x, place.y + place.height - 1 - y, CurrentTime);
    _server->flush();
}

void ProgramWindow::click(int x, int y, int button)
{
    moveTo(x, y);
    sendButton(button);
}

void ProgramWindow::drag(int x, int y, int toX, int toY, int button)
{
    drag({{x, y}, {toX, toY}}, button);
}

void ProgramWindow::drag(const std::vector<std::pair<int, int>>& way, int button)
{
    constexpr int kParts = 4;
    moveTo(way.front().first, way.front().second);
    XTestFakeButtonEvent(_server->display, static_cast<unsigned>(button), True, CurrentTime);
    _server->flush();
    for (size_t i = 1; i < way.size(); ++i) {
        const auto& [x, y] = way[i - 1];
        const auto& [toX, toY] = way[i];
        for (int part = 1; part <= kParts; ++part) {
            pause(40ms);
            moveTo(x + part * (toX - x) / kParts, y + part * (toY - y) / kParts);
        }
    }
    pause(200ms); // let go in motion, the mouse would throw what it holds
    XTestFakeButtonEvent(_server->display, static_cast<unsigned>(button), False, CurrentTime);
    _server->flush();
}

void ProgramWindow::turnWheel(int x, int y, int steps)
{
    constexpr int kAway = 4;
    constexpr int kTowards = 5;
    moveTo(x, y);
    for (int step = 0; step < std::abs(steps); ++step)
        sendButton(steps > 0 ? kAway : kTowards);
}

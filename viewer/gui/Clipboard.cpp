#include "viewer/gui/Clipboard.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <chrono>
#include <thread>

namespace {

constexpr auto kPatience = std::chrono::milliseconds(200);
constexpr long kLongest = 1 << 20; ///< of a text that is pasted, in units of four bytes

} // namespace

struct Clipboard::Connection
{
    Connection()
        : display(XOpenDisplay(nullptr)),
          window(display ? XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0)
                         : None)
    {
    }
    ~Connection()
    {
        if (display) XCloseDisplay(display);
    }

    Atom atom(const char* name) const { return XInternAtom(display, name, False); }
    bool owns() const { return XGetSelectionOwner(display, atom("CLIPBOARD")) == window; }

    void answer(const XSelectionRequestEvent& request, const std::string& text) const;
    std::string take() const;

    Display* const display;
    const Window window;
};

/// Text, or what kinds of it there are.
void Clipboard::Connection::answer(const XSelectionRequestEvent& request, const std::string& text) const
{
    const Atom utf8 = atom("UTF8_STRING");
    const Atom targets = atom("TARGETS");
    const Atom property = request.property != None ? request.property : request.target;
    XEvent answer{};
    answer.xselection.type = SelectionNotify;
    answer.xselection.requestor = request.requestor;
    answer.xselection.selection = request.selection;
    answer.xselection.target = request.target;
    answer.xselection.time = request.time;
    answer.xselection.property = property;
    if (request.target == targets) {
        const Atom kinds[] = {targets, utf8};
        XChangeProperty(display, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(kinds), 2);
    } else if (request.target == utf8 || request.target == XA_STRING) {
        XChangeProperty(display, request.requestor, property, request.target, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    } else {
        answer.xselection.property = None;
    }
    XSendEvent(display, request.requestor, False, NoEventMask, &answer);
    XFlush(display);
}

std::string Clipboard::Connection::take() const
{
    const Atom property = atom("VELBRX_PASTE");
    XConvertSelection(display, atom("CLIPBOARD"), atom("UTF8_STRING"), property, window, CurrentTime);
    XFlush(display);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    XEvent event{};
    while (!XCheckTypedWindowEvent(display, window, SelectionNotify, &event)) {
        if (std::chrono::steady_clock::now() > end) return "";
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (event.xselection.property == None) return "";
    Atom type = None;
    int bits = 0;
    unsigned long count = 0;
    unsigned long rest = 0;
    unsigned char* data = nullptr;
    std::string text;
    if (XGetWindowProperty(display, window, property, 0, kLongest, True, AnyPropertyType, &type, &bits,
                           &count, &rest, &data) == Success &&
        data && bits == 8)
        text.assign(reinterpret_cast<const char*>(data), count);
    if (data) XFree(data);
    return text;
}

Clipboard::Clipboard() : _connection(std::make_unique<Connection>())
{
    if (!_connection->display) _connection.reset();
}

Clipboard::~Clipboard() = default;

void Clipboard::setText(const std::string& text)
{
    _text = text;
    if (!_connection) return;
    XSetSelectionOwner(_connection->display, _connection->atom("CLIPBOARD"), _connection->window,
                       CurrentTime);
    XFlush(_connection->display);
}

std::string Clipboard::text()
{
    return !_connection || _connection->owns() ? _text : _connection->take();
}

int Clipboard::connection() const
{
    return _connection ? XConnectionNumber(_connection->display) : -1;
}

void Clipboard::serve()
{
    if (!_connection) return;
    while (XPending(_connection->display) > 0) {
        XEvent event;
        XNextEvent(_connection->display, &event);
        if (event.type == SelectionRequest) _connection->answer(event.xselectionrequest, _text);
    }
}

#include "viewer/window/DroppedFiles.h"

#include <osgViewer/api/X11/GraphicsWindowX11>

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr long kVersion = 5;
constexpr int kTypesInMessage = 3;
constexpr long kMostWords = 1 << 20; ///< of a property, 4 bytes each

/// The letters of a URI, "%20" as a space.
std::string decoded(const std::string& uri)
{
    std::string text;
    for (size_t i = 0; i < uri.size(); ++i) {
        if (uri[i] != '%' || i + 2 >= uri.size()) {
            text += uri[i];
            continue;
        }
        text += static_cast<char>(std::strtol(uri.substr(i + 1, 2).c_str(), nullptr, 16));
        i += 2;
    }
    return text;
}

/// Of a list of URIs those that name files: "file:///a/b", "file://host/a/b", "file:/a/b".
std::vector<std::string> pathsOf(const std::string& list)
{
    const std::string scheme = "file:";
    std::vector<std::string> paths;
    for (size_t begin = 0; begin < list.size();) {
        const size_t end = std::min(list.find_first_of("\r\n", begin), list.size());
        std::string line = list.substr(begin, end - begin);
        begin = end + 1;
        if (line.rfind(scheme, 0) != 0) continue;
        line.erase(0, scheme.size());
        const size_t path = line.rfind("//", 0) == 0 ? line.find('/', 2) : line.find('/');
        if (path != std::string::npos) paths.push_back(decoded(line.substr(path)));
    }
    return paths;
}

} // namespace

/// The window that gets the messages in the stead of the viewer's, which names it as its proxy.
class DroppedFiles::Target
{
public:
    Target(Display* display, Window window);
    ~Target() { XCloseDisplay(_display); }

    std::vector<std::string> take();
    int connection() const { return XConnectionNumber(_display); }

private:
    Atom atom(const char* name) const { return XInternAtom(_display, name, False); }
    void setWindows(Window of, const char* property, Window value);
    void enter(const XClientMessageEvent& message);
    void answer(const char* type, long isAccepted);
    std::vector<unsigned long> words(Window of, Atom property, Atom type) const;
    std::vector<std::string> receive(const XSelectionEvent& selection);

    Display* const _display;
    const Window _proxy;
    const Atom _list = atom("text/uri-list");
    Window _source = None;  ///< who drags
    Window _target = None;  ///< over which window
    bool _hasFiles = false; ///< it offers a list of URIs
};

DroppedFiles::Target::Target(Display* display, Window window)
    : _display(display),
      _proxy(XCreateSimpleWindow(display, DefaultRootWindow(display), -10, -10, 1, 1, 0, 0, 0))
{
    for (const Window aware : {_proxy, window}) {
        XChangeProperty(_display, aware, atom("XdndAware"), XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(&kVersion), 1);
        setWindows(aware, "XdndProxy", _proxy);
    }
    XFlush(_display);
}

void DroppedFiles::Target::setWindows(Window of, const char* property, Window value)
{
    XChangeProperty(_display, of, atom(property), XA_WINDOW, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&value), 1);
}

std::vector<std::string> DroppedFiles::Target::take()
{
    std::vector<std::string> paths;
    while (XPending(_display) > 0) {
        XEvent event;
        XNextEvent(_display, &event);
        if (event.type == SelectionNotify) {
            const std::vector<std::string> received = receive(event.xselection);
            paths.insert(paths.end(), received.begin(), received.end());
        }
        if (event.type != ClientMessage) continue;
        const XClientMessageEvent& message = event.xclient;
        const Atom type = message.message_type;
        if (type == atom("XdndEnter")) enter(message);
        if (type == atom("XdndLeave")) _source = None;
        if (_source == None || static_cast<Window>(message.data.l[0]) != _source) continue;
        if (type == atom("XdndPosition")) answer("XdndStatus", _hasFiles);
        if (type == atom("XdndDrop") && _hasFiles)
            XConvertSelection(_display, atom("XdndSelection"), _list, _list, _proxy,
                              static_cast<Time>(message.data.l[2]));
        else if (type == atom("XdndDrop"))
            answer("XdndFinished", 0);
    }
    return paths;
}

void DroppedFiles::Target::enter(const XClientMessageEvent& message)
{
    _source = static_cast<Window>(message.data.l[0]);
    _target = message.window;
    std::vector<unsigned long> types;
    if (message.data.l[1] & 1)
        types = words(_source, atom("XdndTypeList"), XA_ATOM);
    else
        types.assign(message.data.l + 2, message.data.l + 2 + kTypesInMessage);
    _hasFiles = std::find(types.begin(), types.end(), _list) != types.end();
}

void DroppedFiles::Target::answer(const char* type, long isAccepted)
{
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = _source;
    event.xclient.message_type = atom(type);
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(_target);
    event.xclient.data.l[1] = isAccepted;
    const bool isStatus = type == std::string("XdndStatus"); // which has a rectangle before the action
    event.xclient.data.l[isStatus ? 4 : 2] = static_cast<long>(isAccepted ? atom("XdndActionCopy") : None);
    XSendEvent(_display, _source, False, NoEventMask, &event);
    XFlush(_display);
}

/// Of a property of 32-bit words; none where it has another type.
std::vector<unsigned long> DroppedFiles::Target::words(Window of, Atom property, Atom type) const
{
    Atom is = None;
    int bits = 0;
    unsigned long count = 0, left = 0;
    unsigned char* data = nullptr;
    std::vector<unsigned long> values;
    if (XGetWindowProperty(_display, of, property, 0, kMostWords, False, type, &is, &bits, &count, &left,
                           &data) == Success &&
        data && is == type && bits == 32) {
        const auto* const first = reinterpret_cast<const unsigned long*>(data);
        values.assign(first, first + count);
    }
    if (data) XFree(data);
    return values;
}

std::vector<std::string> DroppedFiles::Target::receive(const XSelectionEvent& selection)
{
    std::string list;
    Atom is = None;
    int bits = 0;
    unsigned long count = 0, left = 0;
    unsigned char* data = nullptr;
    if (selection.property != None &&
        XGetWindowProperty(_display, _proxy, _list, 0, kMostWords, True, AnyPropertyType, &is, &bits, &count,
                           &left, &data) == Success &&
        data && bits == 8)
        list.assign(reinterpret_cast<const char*>(data), count);
    if (data) XFree(data);
    answer("XdndFinished", !list.empty());
    _source = None;
    return pathsOf(list);
}

DroppedFiles::DroppedFiles(osgViewer::Viewer& viewer)
{
    osgViewer::ViewerBase::Windows windows;
    viewer.getWindows(windows);
    if (windows.empty()) return;
    auto* const x11 = dynamic_cast<osgViewer::GraphicsWindowX11*>(windows.front());
    if (!x11 || !x11->getDisplay()) return;
    if (Display* const display = XOpenDisplay(XDisplayString(x11->getDisplay())))
        _target = std::make_unique<Target>(display, x11->getWindow());
}

DroppedFiles::~DroppedFiles() = default;

int DroppedFiles::connection() const
{
    return _target ? _target->connection() : -1;
}

std::vector<std::string> DroppedFiles::take()
{
    return _target ? _target->take() : std::vector<std::string>();
}

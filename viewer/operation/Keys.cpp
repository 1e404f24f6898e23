#include "viewer/operation/Keys.h"

#include <cctype>
#include <utility>

using osgGA::GUIEventAdapter;

namespace {

constexpr std::pair<int, const char*> kNames[] = {{GUIEventAdapter::KEY_Space, "Space"},
                                                  {GUIEventAdapter::KEY_BackSpace, "Backspace"},
                                                  {GUIEventAdapter::KEY_Tab, "Tab"},
                                                  {GUIEventAdapter::KEY_Return, "Enter"},
                                                  {GUIEventAdapter::KEY_Escape, "Escape"},
                                                  {GUIEventAdapter::KEY_Delete, "Delete"},
                                                  {GUIEventAdapter::KEY_Insert, "Insert"},
                                                  {GUIEventAdapter::KEY_Home, "Home"},
                                                  {GUIEventAdapter::KEY_End, "End"},
                                                  {GUIEventAdapter::KEY_Page_Up, "PageUp"},
                                                  {GUIEventAdapter::KEY_Page_Down, "PageDown"},
                                                  {GUIEventAdapter::KEY_Left, "Left"},
                                                  {GUIEventAdapter::KEY_Right, "Right"},
                                                  {GUIEventAdapter::KEY_Up, "Up"},
                                                  {GUIEventAdapter::KEY_Down, "Down"}};

/// Of the number pad, what they stand for without Num Lock and with it.
constexpr std::pair<int, int> kPad[] = {{GUIEventAdapter::KEY_KP_Enter, GUIEventAdapter::KEY_Return},
                                        {GUIEventAdapter::KEY_KP_Home, GUIEventAdapter::KEY_Home},
                                        {GUIEventAdapter::KEY_KP_End, GUIEventAdapter::KEY_End},
                                        {GUIEventAdapter::KEY_KP_Left, GUIEventAdapter::KEY_Left},
                                        {GUIEventAdapter::KEY_KP_Right, GUIEventAdapter::KEY_Right},
                                        {GUIEventAdapter::KEY_KP_Up, GUIEventAdapter::KEY_Up},
                                        {GUIEventAdapter::KEY_KP_Down, GUIEventAdapter::KEY_Down},
                                        {GUIEventAdapter::KEY_KP_Page_Up, GUIEventAdapter::KEY_Page_Up},
                                        {GUIEventAdapter::KEY_KP_Page_Down, GUIEventAdapter::KEY_Page_Down},
                                        {GUIEventAdapter::KEY_KP_Insert, GUIEventAdapter::KEY_Insert},
                                        {GUIEventAdapter::KEY_KP_Delete, GUIEventAdapter::KEY_Delete},
                                        {GUIEventAdapter::KEY_KP_Add, '+'},
                                        {GUIEventAdapter::KEY_KP_Subtract, '-'},
                                        {GUIEventAdapter::KEY_KP_Multiply, '*'},
                                        {GUIEventAdapter::KEY_KP_Divide, '/'},
                                        {GUIEventAdapter::KEY_KP_Decimal, '.'},
                                        {GUIEventAdapter::KEY_KP_Separator, ','}};

int withoutPad(int key)
{
    if (key >= GUIEventAdapter::KEY_KP_0 && key <= GUIEventAdapter::KEY_KP_9)
        return '0' + key - GUIEventAdapter::KEY_KP_0;
    for (const auto& [pad, plain] : kPad)
        if (pad == key) return plain;
    return key;
}

bool isSpecial(int key)
{
    return key >= 0xff00 && key <= 0xffff;
}

} // namespace

int keyPressed(const GUIEventAdapter& event)
{
    const int held = event.getModKeyMask();
    // Alt on the right chooses what many keyboards type.
    const bool ctrl = (held & GUIEventAdapter::MODKEY_CTRL) != 0;
    const bool alt = (held & GUIEventAdapter::MODKEY_LEFT_ALT) != 0;
    int key = withoutPad(event.getKey());
    // A window system sends the control character.
    if (ctrl && key > 0 && key < ' ') key += 'a' - 1;
    if ((ctrl || alt) && key < 0x100) key = std::tolower(key);
    const bool tellsShift = (held & GUIEventAdapter::MODKEY_SHIFT) && (ctrl || alt || isSpecial(key));
    return key | (ctrl ? kCtrl : 0) | (alt ? kAlt : 0) | (tellsShift ? kShift : 0);
}

std::string keyName(int key)
{
    std::string name =
        std::string(key & kCtrl ? "Ctrl+" : "") + (key & kAlt ? "Alt+" : "") + (key & kShift ? "Shift+" : "");
    const bool isHeld = !name.empty();
    key &= ~(kCtrl | kAlt | kShift);
    if (key >= GUIEventAdapter::KEY_F1 && key <= GUIEventAdapter::KEY_F35)
        return name + "F" + std::to_string(key - GUIEventAdapter::KEY_F1 + 1);
    for (const auto& [symbol, words] : kNames)
        if (symbol == key) return name + words;
    return name + static_cast<char>(isHeld ? std::toupper(key) : key);
}

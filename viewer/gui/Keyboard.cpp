#include "viewer/gui/Keyboard.h"

#include <osgGA/GUIActionAdapter>
#include <osgViewer/api/X11/GraphicsHandleX11>

#include <cctype>
#include <cstring>
#include <iconv.h>
#include <utility>

#include <X11/Xlib.h>

namespace {

constexpr int kUnicode = 0x1000000; ///< added to a letter: how X names it where it has no older name
constexpr int kUnicodeEnd = kUnicode + 0x110000;

/// The older names of X: a set of letters, and the letter's byte in it.
constexpr std::pair<int, const char*> kSets[] = {{1, "ISO-8859-2"},  {2, "ISO-8859-3"}, {3, "ISO-8859-4"},
                                                 {5, "ISO-8859-6"},  {6, "KOI8-U"},     {7, "ISO-8859-7"},
                                                 {12, "ISO-8859-8"}, {13, "TIS-620"},   {19, "ISO-8859-15"}};

/// The first letters of the rows of an American keyboard, from the key code of the row's first key on.
struct Row
{
    unsigned first;
    const char* plain;
    const char* shifted;
};
constexpr Row kRows[] = {{10, "1234567890-=", "!@#$%^&*()_+"},
                         {24, "qwertyuiop[]", "QWERTYUIOP{}"},
                         {38, "asdfghjkl;'`", "ASDFGHJKL:\"~"},
                         {51, "\\zxcvbnm,./", "|ZXCVBNM<>?"}};

unsigned fromSet(const char* set, int byte)
{
    const iconv_t converter = iconv_open("UTF-32LE", set);
    if (converter == iconv_t(-1)) return 0;
    char in = static_cast<char>(byte);
    unsigned letter = 0;
    char* from = &in;
    char* to = reinterpret_cast<char*>(&letter);
    size_t fromLeft = 1;
    size_t toLeft = sizeof letter;
    const bool converted = iconv(converter, &from, &fromLeft, &to, &toLeft) != size_t(-1);
    iconv_close(converter);
    return converted ? letter : 0;
}

bool isLatin(int key)
{
    return key < 0x100 || (key >= 0xfe00 && key <= 0xffff);
}

} // namespace

unsigned letterOf(int key)
{
    if (key < 0x100) return key >= ' ' && key != 0x7f ? static_cast<unsigned>(key) : 0;
    if (key >= kUnicode && key < kUnicodeEnd) return static_cast<unsigned>(key - kUnicode);
    if (key >= 0x2000 && key < 0x2100) return static_cast<unsigned>(key); // signs of currencies
    for (const auto& [set, name] : kSets)
        if (key >> 8 == set) return fromSet(name, key & 0xff);
    return 0;
}

int latinTwin(const osgGA::GUIEventAdapter& event)
{
    const int key = event.getKey();
    const auto* const window = dynamic_cast<const osgViewer::GraphicsHandleX11*>(event.getGraphicsContext());
    if (isLatin(key) || !window || !window->getDisplay()) return key;
    const unsigned code = XKeysymToKeycode(window->getDisplay(), static_cast<KeySym>(key));
    const bool shifted = (event.getModKeyMask() & osgGA::GUIEventAdapter::MODKEY_SHIFT) != 0;
    for (const Row& row : kRows) {
        const char* const letters = shifted ? row.shifted : row.plain;
        if (code >= row.first && code < row.first + std::strlen(letters)) return letters[code - row.first];
    }
    return key;
}

#pragma once

#include "tests/support/Eventually.h"
#include "tests/support/RunProgram.h"

#include <osg/Image>
#include <osg/ref_ptr>

#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A program with one window, on an X server of its own without a screen, that is worked as people do: its
/// keys and mouse come from the server, as those of a keyboard and a mouse do. Pixels of the window count
/// from its bottom left, y up. There is no window manager. The program is ended with this object.
class ProgramWindow
{
public:
    static constexpr int kScreenWidth = 800;
    static constexpr int kScreenHeight = 600;

    /// Place on the screen, from its top left, and size.
    struct Area
    {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };

    /// Starts the program in a working folder and waits for its window; throws when there is none.
    ProgramWindow(const std::vector<std::string>& words, const std::string& folder,
                  int screenWidth = kScreenWidth, int screenHeight = kScreenHeight);
    ~ProgramWindow();

    std::string title() const;
    Area area() const;

    /// 8-bit RGB, bottom row first.
    osg::ref_ptr<osg::Image> picture() const;

    /// The picture when it has been the same for a while.
    osg::ref_ptr<osg::Image> stillPicture() const;

    /// \name Keys
    /// A key by what it types, such as "T", or by its name in X, such as "Escape"; "Ctrl+q" or
    /// "Alt+Left" with another held.
    /// @{
    void press(const std::string& key);
    void down(const std::string& key);
    void up(const std::string& key);
    /// @}

    /// \name Mouse
    /// Button 1 is the left one, 2 the middle one, 3 the right one.
    /// @{
    void moveTo(int x, int y);
    void click(int x, int y, int button = 1);
    void drag(int x, int y, int toX, int toY, int button = 1);
    void drag(const std::vector<std::pair<int, int>>& way, int button = 1);

    /// Positive steps are away from the hand.
    void turnWheel(int x, int y, int steps);
    /// @}

    /// Drops files on the window, as a file manager does when they are dragged there. False where it takes
    /// none.
    bool drop(const std::vector<std::string>& paths);

    /// What a window manager sends when the close button is clicked.
    void clickCloseButton();

    RunningProgram& program() { return *_program; }

private:
    struct Server;

    void sendKey(const std::string& key, bool isDown);
    void sendButton(int button);

    const std::unique_ptr<Server> _server;
    std::unique_ptr<RunningProgram> _program;
};

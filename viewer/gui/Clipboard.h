#pragma once

#include <memory>
#include <string>

/// The clipboard of the window system, over a connection of its own. Within the program alone where there is
/// no X display. What was copied goes with the program, unless a clipboard manager keeps it.
///
/// Threads: one at a time.
class Clipboard
{
public:
    Clipboard();
    ~Clipboard();
    Clipboard(const Clipboard&) = delete;
    Clipboard& operator=(const Clipboard&) = delete;

    void setText(const std::string& text);

    /// What was copied last, here or in another program, as UTF-8. Waits for that program, a fifth of a
    /// second at most.
    std::string text();

    /// Hands the text to programs that paste. To be called again and again, never waits.
    void serve();

    /// Readable when there is something to serve; -1 without a display.
    int connection() const;

private:
    struct Connection;

    std::unique_ptr<Connection> _connection; ///< null without a display
    std::string _text;                       ///< ours
};

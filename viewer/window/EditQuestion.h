#pragma once

#include "viewer/operation/Operation.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What the user is asked before something is done, one question at a time, and the keys that answer it.
/// While one is open all keys are its own, and the mouse does nothing.
///
/// Belongs to the viewer's thread.
class EditQuestion
{
public:
    enum class Answer
    {
        NONE, ///< another key
        LEAVE,
        DO_IT, ///< the operation of `asked`
        EDIT_ANYWAY,
        SAVE_AND_CLOSE,
        KEEP_AND_CLOSE,
        DROP_AND_CLOSE
    };

    /// \name Asking
    /// @{
    /// Shall an operation be done that has a question. `yes`: the key that says so, as of `keyPressed`.
    void askIfSure(const Request& request, int yes);

    /// Shall stores be edited that another program edits, or whose journal cannot be written; `why` it was
    /// refused.
    void askToEditAnyway(const std::string& why);

    /// What becomes of unsaved classes, points by store; `areKept`: journals keep them.
    void askToClose(const std::map<std::string, uint64_t>& unsaved, bool areKept);
    /// @}

    bool isOpen() const { return _kind != Kind::NONE; }

    /// Takes a key. An answer ends the question.
    Answer answer(int key);

    /// What the last `askIfSure` was about.
    const Request& asked() const { return *_asked; }

    /// For people; empty where none is open.
    const std::vector<std::string>& lines() const { return _lines; }

private:
    enum class Kind
    {
        NONE,
        SURE,
        ANYWAY,
        CLOSE
    };

    Answer meant(int key) const;

    Kind _kind = Kind::NONE;
    std::optional<Request> _asked;
    int _yes = 0;
    std::vector<std::string> _lines;
};

#pragma once

#include "terminal/ClassList.h"
#include "viewer/edit/ClassChoice.h"
#include "viewer/operation/Operations.h"

#include <optional>
#include <string>
#include <vector>

/// Classes that are typed: the to-class by its digits, and lists of classes up to Enter. Keys are as of
/// `Request`'s table, those of the number pad as the main ones.
///
/// Belongs to the viewer's thread.
class ClassTyping
{
public:
    /// `classes` outlives it.
    explicit ClassTyping(ClassChoice& classes) : _classes(classes) {}

    /// \name The to-class
    /// @{
    /// A digit goes on with those before it while they come one soon after the other, and up to 255. Seconds.
    void typeDigit(int digit, double time);

    /// The next digit begins another class.
    void endNumber() { _digitTime.reset(); }
    /// @}

    /// \name A list
    /// @{
    /// Begins a list of the classes that `after` asks for; empty: of those that may change.
    void begin(const std::optional<PressedKey>& after) { _list = List{after, {}}; }

    /// All keys are the list's.
    bool isOpen() const { return _list.has_value(); }

    /// Takes a key. Enter ends the list: the classes that may change are set then, and a request is returned
    /// for those of another list. What is no list stays, and `problem` says why.
    std::optional<Request> type(int key, const Scene& scene, std::string& problem);

    /// What is being typed, and how.
    std::vector<std::string> hints() const;
    /// @}

private:
    struct List
    {
        std::optional<PressedKey> after;
        std::string text;
    };

    std::optional<Request> accept(const Scene& scene, std::string& problem);

    ClassChoice& _classes;
    std::optional<double> _digitTime; ///< when the last digit of the to-class was typed, seconds
    std::optional<List> _list;
};

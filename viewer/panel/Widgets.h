#pragma once

#include "terminal/ClassList.h"
#include "viewer/operation/Operations.h"

#include <optional>
#include <string>

/// Widgets of the panel that do operations of the table. Key and tool tip come from there; what is done goes
/// through `Stage::act`, so that a click and the key are the same.
///
/// Threads: the viewer's, in a part of `Gui`.
namespace widgets {

/// A tool tip for the last widget, when the mouse rests on it.
void tip(const std::string& text);

/// A tool tip for the last widget from an operation: what it does, and its key. `key` is the one that the
/// widget stands for, null where there is none.
void tipOf(const Operation& operation, const Key* key);

/// Writes a key beside the last widget, or at the right edge.
void keyBeside(const Key& key);

/// A button with the operation's first key beside it; says what that key says.
void operationButton(const Stage& stage, const char* label, const std::string& operation);

/// A button for the n-th key of an operation.
void keyButton(const Stage& stage, const char* label, const std::string& operation, size_t key);

/// A button that does an operation as `request` says it.
void requestButton(const Stage& stage, const char* label, const Request& request);

/// A tick for a parameter that is a flag; it shows `value`. `rest` holds the other parameters.
void flagTick(const Stage& stage, const char* label, const std::string& parameter, bool value, Request rest);

/// A list to choose a parameter that is a CHOICE from; it shows `value`.
void choiceList(const Stage& stage, const char* label, const std::string& parameter, const std::string& value,
                Request rest);

/// A slider of a parameter that is a NUMBER or WHOLE, over its range, or up to `most`; it shows `value`.
void numberSlider(const Stage& stage, const char* label, const std::string& parameter, double value,
                  Request rest, std::optional<double> most = std::nullopt, const char* format = nullptr);

/// A tick for one of some classes, and a swatch of its colour. The classes once it was clicked; of the one
/// class alone with Ctrl held.
std::optional<ClassSet> classTick(const char* id, const ClassSet& classes, int code);
bool classSwatch(int code);

} // namespace widgets

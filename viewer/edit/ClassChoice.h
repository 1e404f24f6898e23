#pragma once

#include "terminal/ClassList.h"

/// The classes that edits by hand work with, whatever tool does them: what the points become, and which of
/// them may change. One for a window; its keys and its panel read and set it, on the viewer's thread.
struct ClassChoice
{
    int toClass = 1;                         ///< 0 to 255
    ClassSet fromClasses = ClassSet().set(); ///< points of other classes stay as they are
};

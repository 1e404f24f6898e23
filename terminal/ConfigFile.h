#pragma once

#include <VelBrx/Status.h>

#include <string>

/// The path of a file of the user's configuration, such as "velbrx/classes.json": below $XDG_CONFIG_HOME, or
/// ~/.config without it. Empty where neither is known.
std::string configFile(const std::string& name);

/// Gives a file this text, in one piece: it has the old text or the new one, whatever happens. Makes its
/// folder. A link to a file stays one. A failure names the file.
VelBrx::Status replaceFile(const std::string& path, const std::string& text);

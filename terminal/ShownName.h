#pragma once

#include <string>

/// A name from a file, such as that of an author, as it is shown among others: `printable`, and what is
/// behind 60 bytes replaced by "...".
std::string shownName(const std::string& name);

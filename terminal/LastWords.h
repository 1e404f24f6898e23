#pragma once

/// Makes a lack of memory or threads that nobody catches, mostly on a thread of a library, end the process in
/// one line behind the name of the program and with status 1. Files that are being written have no name yet
/// and are gone, edits are in their journals. For main, once; `program` stays.
void endInOneLine(const char* program);

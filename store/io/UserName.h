#pragma once

#include <string>

#include <sys/types.h>

namespace VelBrx {

/// The login name of a user, or "user" and the number where there is none. Any thread may call it.
std::string userName(uid_t user);

} // namespace VelBrx

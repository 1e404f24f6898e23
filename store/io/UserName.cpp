#include "store/io/UserName.h"

#include <vector>

#include <pwd.h>

namespace VelBrx {

std::string userName(uid_t user)
{
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> text(4096);
    const bool known = getpwuid_r(user, &entry, text.data(), text.size(), &found) == 0 && found;
    return known ? found->pw_name : "user " + std::to_string(user);
}

} // namespace VelBrx

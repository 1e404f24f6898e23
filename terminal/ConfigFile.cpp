#include "terminal/ConfigFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace fs = std::filesystem;
using VelBrx::Status;

std::string configFile(const std::string& name)
{
    const char* const xdg = std::getenv("XDG_CONFIG_HOME");
    const char* const home = std::getenv("HOME");
    if (xdg && *xdg) return (fs::path(xdg) / name).string();
    return home && *home ? (fs::path(home) / ".config" / name).string() : std::string();
}

Status replaceFile(const std::string& path, const std::string& text)
{
    const auto failure = [&path](const std::string& why) {
        return Status::failure(path + ": cannot be written: " + why);
    };
    std::error_code error;
    const fs::path target = fs::weakly_canonical(path, error);
    if (!error) fs::create_directories(target.parent_path(), error);
    if (error) return failure(error.message());
    const std::string temporary = target.string() + "." + std::to_string(getpid());
    errno = 0;
    std::ofstream stream(temporary, std::ios::binary);
    stream << text;
    stream.close();
    const int reason = errno;
    if (stream) fs::rename(temporary, target, error);
    if (stream && !error) return Status();
    const std::string why = error ? error.message() : std::strerror(reason);
    fs::remove(temporary, error);
    return failure(why);
}

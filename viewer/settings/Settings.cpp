#include "viewer/settings/Settings.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;
using VelBrx::Status;

namespace {

/// Of a file that is not there: an empty object.
Status readObject(const std::string& path, json& object)
{
    object = json::object();
    std::error_code error;
    const bool exists = fs::exists(path, error);
    if (error) return Status::failure(path + ": " + error.message());
    if (!exists) return Status();
    std::ifstream stream(path, std::ios::binary);
    json read = json::parse(stream, nullptr, false);
    if (!read.is_object()) {
        return Status::failure(path + ": cannot be read as settings, so none are remembered; mend it or "
                                      "remove it");
    }
    object = std::move(read);
    return Status();
}

Status writeObject(const std::string& path, const json& object)
{
    std::error_code error;
    // A file that is linked from elsewhere is replaced where it is.
    const fs::path target = fs::weakly_canonical(path, error);
    if (!error) fs::create_directories(target.parent_path(), error);
    if (error) return Status::failure(path + ": " + error.message());
    const std::string temporary = target.string() + "." + std::to_string(getpid());
    errno = 0;
    std::ofstream stream(temporary, std::ios::binary);
    stream << object.dump(2, ' ', false, json::error_handler_t::replace) << '\n';
    stream.close();
    const int reason = errno;
    if (stream) fs::rename(temporary, target, error);
    if (stream && !error) return Status();
    const std::string why = error ? error.message() : std::strerror(reason);
    fs::remove(temporary, error);
    return Status::failure(path + ": settings cannot be written: " + why);
}

} // namespace

struct Settings::Values
{
    json all = json::object();
    std::map<std::string, json> changed; ///< since the last save
};

std::string Settings::defaultPath()
{
    const char* const xdg = std::getenv("XDG_CONFIG_HOME");
    const char* const home = std::getenv("HOME");
    if (xdg && *xdg) return (fs::path(xdg) / "brxview/settings.json").string();
    return home && *home ? (fs::path(home) / ".config/brxview/settings.json").string() : std::string();
}

Settings::Settings(const std::string& path) : _path(path), _values(std::make_unique<Values>())
{
    if (_path.empty()) return;
    if (const Status status = readObject(_path, _values->all); !status) _problem = status.message();
}

Settings::~Settings() = default;

template <class T>
std::optional<T> Settings::get(const std::string& key) const
{
    const auto found = _values->all.find(key);
    if (found == _values->all.end()) return std::nullopt;
    try {
        T value = found->get<T>();
        if (json(value) == *found) return value; // 1.5 is no int
    } catch (const json::exception&) {
    }
    return std::nullopt;
}

template <class T>
void Settings::set(const std::string& key, const T& value)
{
    json& now = _values->all[key];
    if (json wanted(value); now != wanted) now = _values->changed[key] = std::move(wanted);
}

Status Settings::save()
{
    if (_path.empty() || !_problem.empty() || _values->changed.empty()) return Status();
    json object;
    if (Status status = readObject(_path, object); !status) return status;
    for (const auto& [key, value] : _values->changed)
        object[key] = value;
    if (Status status = writeObject(_path, object); !status) return status;
    _values->changed.clear();
    return Status();
}

#define VEL_SETTING(...)                                                                                     \
    template std::optional<__VA_ARGS__> Settings::get(const std::string&) const;                             \
    template void Settings::set(const std::string&, const __VA_ARGS__&)

VEL_SETTING(bool);
VEL_SETTING(int);
VEL_SETTING(double);
VEL_SETTING(std::string);
VEL_SETTING(std::vector<int>);
VEL_SETTING(std::vector<double>);
VEL_SETTING(std::vector<std::string>);
VEL_SETTING(std::map<std::string, bool>);
VEL_SETTING(std::map<std::string, int>);
VEL_SETTING(std::map<std::string, double>);
VEL_SETTING(std::map<std::string, std::string>);
VEL_SETTING(std::map<std::string, std::vector<double>>);

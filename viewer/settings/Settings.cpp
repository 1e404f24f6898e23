#include "viewer/settings/Settings.h"

#include "terminal/ConfigFile.h"
#include "terminal/ShallowJson.h"

#include <nlohmann/json.hpp>

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
    json read = parseShallow<json>(stream);
    if (!read.is_object()) {
        return Status::failure(path + ": cannot be read as settings, so none are remembered; mend it or "
                                      "remove it");
    }
    object = std::move(read);
    return Status();
}

} // namespace

struct Settings::Values
{
    json all = json::object();
    std::map<std::string, json> changed; ///< since the last save
};

std::string Settings::defaultPath()
{
    return configFile("brxview/settings.json");
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
    const std::string text = object.dump(2, ' ', false, json::error_handler_t::replace) + '\n';
    if (Status status = replaceFile(_path, text); !status) return status;
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

#include "terminal/ClassesFile.h"

#include "terminal/ConfigFile.h"
#include "terminal/Text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <bitset>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>

namespace fs = std::filesystem;
using nlohmann::ordered_json;
using VelBrx::ClassTable;
using VelBrx::Status;

namespace {

constexpr char kFileName[] = "classes.json";
constexpr size_t kLongestName = 64; ///< bytes

std::optional<uint32_t> colorOf(const ordered_json& value)
{
    if (!value.is_string()) return std::nullopt;
    const auto& text = value.get_ref<const std::string&>();
    uint32_t rgb = 0;
    if (text.size() != 7 || text[0] != '#') return std::nullopt;
    const auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), rgb, 16);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return rgb;
}

bool isName(const ordered_json& value)
{
    return value.is_string() && value.get_ref<const std::string&>().size() <= kLongestName &&
           printable(value.get<std::string>()) == value.get_ref<const std::string&>();
}

/// What is wrong with a member of a class; empty where it is one, which the table then has.
std::string takeMember(const std::string& name, const ordered_json& value, unsigned code, ClassTable& table)
{
    if (name == "code") return "";
    if (name == "name") {
        if (!isName(value)) return "\"name\": expected a text of one line, up to 64 letters";
        table.setName(code, value.get<std::string>());
    } else if (name == "color") {
        const std::optional<uint32_t> color = colorOf(value);
        if (!color) return "\"color\": expected #rrggbb, such as \"#b5834a\"";
        table.setColor(code, *color);
    } else {
        return "\"" + printable(name) + "\" is no member of a class; there are code, name, color";
    }
    return "";
}

std::string takeClass(const ordered_json& item, ClassTable& table, std::bitset<256>& seen)
{
    if (!item.is_object()) return "expected an object with a member \"code\"";
    const auto code = item.find("code");
    if (code == item.end()) return "\"code\" is missing";
    if (!code->is_number_unsigned() || code->get<uint64_t>() >= seen.size())
        return "\"code\": expected a whole number from 0 to 255";
    const auto number = code->get<unsigned>();
    if (seen[number]) return "class " + std::to_string(number) + " stands there twice";
    seen.set(number);
    table.setName(number, table.name(number)); // a class that is only named by its code is the user's, too
    for (const auto& [name, value] : item.items())
        if (const std::string wrong = takeMember(name, value, number, table); !wrong.empty()) return wrong;
    return "";
}

std::string takeDocument(const ordered_json& document, ClassTable& table)
{
    const bool isObject = document.is_object() && document.size() == 1;
    const auto classes = isObject ? document.find("classes") : document.end();
    if (!isObject || classes == document.end() || !classes->is_array())
        return "expected an object with one member, the array \"classes\"";
    std::bitset<256> seen;
    size_t number = 0;
    for (const ordered_json& item : *classes) {
        ++number;
        if (const std::string wrong = takeClass(item, table, seen); !wrong.empty())
            return "item " + std::to_string(number) + " of \"classes\": " + wrong;
    }
    return "";
}

bool isFile(const fs::path& path)
{
    std::error_code error;
    return fs::is_regular_file(path, error);
}

/// The file that the program takes by itself; empty where there is none.
std::string findFile(const std::vector<std::string>& stores)
{
    for (const std::string& store : stores)
        if (const fs::path beside = fs::path(store).parent_path() / kFileName; isFile(beside))
            return beside.string();
    const std::string users = userClassesFile();
    return isFile(users) ? users : "";
}

} // namespace

Status readClasses(const std::string& file, ClassTable& table)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) return Status::failure(file + ": cannot be opened; check its name and permissions");
    ClassTable read;
    std::string wrong;
    try {
        wrong = takeDocument(ordered_json::parse(stream), read);
    } catch (const ordered_json::exception& error) {
        const std::string what = error.what(); // "[json.exception...] parse error at line 1, ..."
        const size_t end = what.find("] ");
        wrong = "is no JSON: " + printable(end == std::string::npos ? what : what.substr(end + 2));
    }
    if (!wrong.empty()) return Status::failure(file + ": " + wrong);
    table = read;
    return Status();
}

Status writeClasses(const std::string& file, const ClassTable& table)
{
    auto classes = ordered_json::array();
    for (unsigned code = 0; code < table.own().size(); ++code) {
        if (!table.own()[code]) continue;
        char color[8];
        std::snprintf(color, sizeof color, "#%06x", static_cast<unsigned>(table.color(code)));
        classes.push_back({{"code", code}, {"name", table.name(code)}, {"color", color}});
    }
    const ordered_json document = {{"classes", classes}};
    return replaceFile(file, document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n');
}

std::string userClassesFile()
{
    return configFile(std::string("velbrx/") + kFileName);
}

Status chooseClasses(const std::string& file, const std::vector<std::string>& stores, ChosenClasses& chosen)
{
    chosen.file = file.empty() ? findFile(stores) : file;
    if (chosen.file.empty()) return Status();
    const Status read = readClasses(chosen.file, chosen.table);
    if (read || !file.empty()) return read;
    chosen.warning = read.message() + "; the classes have their standard names";
    chosen.file.clear();
    return Status();
}

#include "viewer/measure/Measurements.h"

#include "terminal/Text.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

using VelBrx::Status;

namespace {

constexpr const char* kFigures[] = {"length",    "level", "height",     "direction", "area",
                                    "perimeter", "angle", "horizontal", "ground",    "x",
                                    "y",         "z",     "east",       "north"};

/// Between quotation marks where commas or such need it.
std::string cell(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char letter : text)
        quoted += letter == '"' ? "\"\"" : std::string(1, letter);
    return quoted + '"';
}

std::string numberOf(const Figure& figure)
{
    Figure plain = figure;
    plain.unit.clear();
    return plain.text();
}

std::string placesOf(const Measurement& measurement)
{
    std::string text;
    for (const osg::Vec3d& point : measurement.points)
        text += (text.empty() ? "" : "; ") + shortest(point.x()) + " " + shortest(point.y()) + " " +
                shortest(point.z());
    return text;
}

std::string tableOf(const std::vector<Measurements::Entry>& entries)
{
    std::string table = "number,kind";
    for (const char* figure : kFigures)
        table += std::string(",") + figure;
    table += ",unit,height unit,coordinate system,points,remark\r\n";
    for (const Measurements::Entry& entry : entries) {
        table += std::to_string(entry.number) + "," + nameOf(entry.measurement.kind);
        for (const char* name : kFigures) {
            const auto figure = std::find_if(entry.figures.begin(), entry.figures.end(),
                                             [&](const Figure& one) { return one.name == name; });
            table += "," + (figure == entry.figures.end() ? "" : numberOf(*figure));
        }
        for (const std::string& text : {entry.units.level, entry.units.height, entry.units.system,
                                        placesOf(entry.measurement), entry.remark})
            table += "," + cell(text);
        table += "\r\n";
    }
    return table;
}

} // namespace

std::string Measurements::Entry::text() const
{
    std::string line = std::to_string(number) + " " + nameOf(measurement.kind) + ":";
    for (const Figure& figure : figures)
        line += (&figure == &figures.front() ? " " : ", ") + figure.name + " " + figure.text();
    if (!remark.empty()) line += (figures.empty() ? " " : "; ") + remark;
    return line;
}

unsigned Measurements::add(const Measurement& measurement, const Units& units)
{
    _entries.push_back(
        {++_last, measurement, units, figuresOf(measurement, units), remarkOn(measurement, units)});
    return _last;
}

const Measurements::Entry* Measurements::find(unsigned number) const
{
    const auto found = std::find_if(_entries.begin(), _entries.end(),
                                    [=](const Entry& entry) { return entry.number == number; });
    return found == _entries.end() ? nullptr : &*found;
}

bool Measurements::remove(unsigned number)
{
    const Entry* const entry = find(number);
    if (entry) _entries.erase(_entries.begin() + (entry - _entries.data()));
    return entry != nullptr;
}

std::string Measurements::text() const
{
    std::string lines;
    for (const Entry& entry : _entries)
        lines += entry.text() + "\n";
    return lines;
}

Status Measurements::writeCsv(const std::string& path, bool replace) const
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (!replace && fs::exists(path, error))
        return Status::failure(path + ": exists; choose another name, or replace it");
    const std::string part = path + ".part";
    {
        std::ofstream file(part, std::ios::binary | std::ios::trunc);
        file << tableOf(_entries) << std::flush;
        if (!file) {
            const std::string why = std::strerror(errno);
            file.close();
            fs::remove(part, error);
            return Status::failure(path + ": cannot be written: " + why + "; choose another place");
        }
    }
    fs::rename(part, path, error);
    if (!error) return {};
    const std::string why = error.message();
    fs::remove(part, error);
    return Status::failure(path + ": cannot be written: " + why + "; choose another place");
}

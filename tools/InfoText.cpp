#include "tools/InfoText.h"

#include "crs/CoordinateSystem.h"
#include "tools/Command.h"

#include <VelBrx/LasInfo.h>

#include <nlohmann/json.hpp>

#include <ctime>
#include <iomanip>
#include <sstream>

using VelBrx::LasInfo;
using Json = nlohmann::ordered_json;

void printClasses(const std::array<uint64_t, 256>& counts, const VelBrx::ClassTable& names)
{
    std::cout << "points by class\n";
    for (unsigned code = 0; code < counts.size(); ++code) {
        if (counts[code] == 0) continue;
        const std::string& name = names.name(code);
        std::cout << "  " << std::right << std::setw(3) << code << std::setw(16) << counts[code]
                  << (name.empty() ? "" : "  ") << name << '\n';
    }
}

double density(uint64_t points, double width, double depth)
{
    return width > 0 && depth > 0 ? static_cast<double>(points) / (width * depth) : 0;
}

std::string systemText(const VelBrx::ProjectionRecords& projection)
{
    std::optional<CoordinateSystem> system;
    if (const VelBrx::Status read = CoordinateSystem::read(projection, system); !read)
        return printable(read.message());
    return system ? printable(system->description()) : "none";
}

namespace {

Json unitJson(const CoordinateSystem::Unit& unit)
{
    return {{"name", unit.name}, {unit.isAngle ? "radians" : "metres", unit.size}};
}

} // namespace

Json systemJson(const VelBrx::ProjectionRecords& projection)
{
    std::optional<CoordinateSystem> system;
    if (!CoordinateSystem::read(projection, system) || !system) return nullptr;
    const auto& vertical = system->verticalUnit();
    return {{"name", system->name()},
            {"code", system->code()},
            {"geographic", system->isGeographic()},
            {"horizontalUnit", unitJson(system->horizontalUnit())},
            {"verticalUnit", vertical ? unitJson(*vertical) : Json()}};
}

namespace {

std::string versionText(const LasInfo& info)
{
    return "LAS 1." + std::to_string(info.versionMinor) +
           (info.isCopc         ? ", COPC"
            : info.isCompressed ? ", compressed (LAZ)"
                                : "");
}

double densityOf(const LasInfo& info)
{
    return density(info.pointCount, info.max[0] - info.min[0], info.max[1] - info.min[1]);
}

/// "5.43 points per square metre"; of coordinates without a system, per square unit.
std::string densityText(const LasInfo& info)
{
    std::optional<CoordinateSystem> system;
    const bool hasUnit = CoordinateSystem::read(info.projection, system) && system;
    std::ostringstream text;
    text << std::setprecision(3) << densityOf(info) << " points per square "
         << (hasUnit ? printable(system->horizontalUnit().name) : "unit");
    return text.str();
}

/// The date of a day of a year, "2017-07-26".
std::string dateText(int year, int day)
{
    std::tm date = {};
    date.tm_year = year - 1900;
    date.tm_mday = day; // of January; goes on into the months behind it
    const std::time_t time = timegm(&date);
    std::ostringstream text;
    text << std::put_time(gmtime_r(&time, &date), "%F");
    return text.str();
}

Json jsonOf(const LasInfo& info)
{
    auto records = Json::array();
    for (const LasInfo::Record& record : info.records)
        records.push_back({{"userId", record.userId}, {"recordId", record.recordId}, {"size", record.size}});
    auto extra = Json::array();
    for (const LasInfo::ExtraBytes& one : info.extraBytes)
        extra.push_back({{"name", one.name}, {"type", one.type}});
    Json json = {{"version", "1." + std::to_string(info.versionMinor)},
                 {"compressed", info.isCompressed},
                 {"copc", info.isCopc},
                 {"pointFormat", info.pointFormat},
                 {"recordLength", info.recordLength},
                 {"points", info.pointCount},
                 {"bounds", {{"min", info.min}, {"max", info.max}}},
                 {"density", densityOf(info)},
                 {"scale", info.scale},
                 {"offset", info.offset},
                 {"coordinateSystem", info.coordinateSystem},
                 {"crs", systemJson(info.projection)},
                 {"system", info.systemIdentifier},
                 {"created", {{"year", info.creationYear}, {"day", info.creationDay}}},
                 {"intensity", {info.minIntensity, info.maxIntensity}},
                 {"colours", info.hasColors},
                 {"withheld", info.withheld},
                 {"sources", info.sources},
                 {"pointsByClass", histogramJson(info.byClass.data(), info.byClass.size())},
                 {"pointsByReturn", histogramJson(info.byReturn.data(), info.byReturn.size())},
                 {"pointsByNumberOfReturns",
                  histogramJson(info.byNumberOfReturns.data(), info.byNumberOfReturns.size())},
                 {"extraBytes", extra},
                 {"records", records},
                 {"notes", info.notes}};
    if (info.hasGpsTime) json["gpsTime"] = {info.minGpsTime, info.maxGpsTime};
    return json;
}

void printPoints(const LasInfo& info, const VelBrx::ClassTable& names)
{
    printPlace(info);
    printLine("density", densityText(info));
    printLine("intensity", std::to_string(info.minIntensity) + " to " + std::to_string(info.maxIntensity));
    if (info.hasGpsTime)
        printLine("GPS time", coordinate(info.minGpsTime, 1e-6) + " to " + coordinate(info.maxGpsTime, 1e-6));
    printLine("colours", info.hasColors ? "yes" : "no");
    printLine("withheld points", info.withheld);
    std::string sources;
    for (const uint16_t source : info.sources)
        sources += (sources.empty() ? "" : " ") + std::to_string(source);
    printLine("sources", sources);
    printClasses(info.byClass, names);
    printHistogram("points by return", info.byReturn);
    printHistogram("points by number of returns", info.byNumberOfReturns);
}

void print(const LasInfo& info, const VelBrx::ClassTable& names)
{
    printLine("format", versionText(info));
    printLine("point format",
              std::to_string(info.pointFormat) + ", " + std::to_string(info.recordLength) + " bytes a point");
    printLine("points", info.pointCount);
    printLine("coordinate system", systemText(info.projection));
    printLine("system", printable(info.systemIdentifier));
    printLine("created", info.creationYear == 0 ? "no date" : dateText(info.creationYear, info.creationDay));
    if (info.pointCount > 0) printPoints(info, names);
    for (const LasInfo::ExtraBytes& one : info.extraBytes)
        printLine("extra bytes", printable(one.name) + ", " + one.type);
    for (const LasInfo::Record& record : info.records)
        printLine("record", printable(record.userId) + " " + std::to_string(record.recordId) + ", " +
                                std::to_string(record.size) + " bytes");
    for (const std::string& note : info.notes)
        printLine("note", printable(note));
}

} // namespace

void tellLas(const std::string& path, const VelBrx::ClassTable& names, bool json)
{
    LasInfo info;
    if (const VelBrx::Status read = readLasInfo(path, info); !read) throw CommandError(read.message());
    if (json)
        printJson(jsonOf(info));
    else
        print(info, names);
}

#include "tools/GeoJson.h"

#include "tools/Command.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>

namespace {

using Json = nlohmann::json;
using Polygons = std::vector<VelBrx::MapPolygon>;

constexpr int kDeepest = 32; // collections within collections

std::array<double, 2> position(const Json& json)
{
    return {json.at(0).get<double>(), json.at(1).get<double>()};
}

/// GeoJSON repeats the first position of a ring as its last.
VelBrx::MapPolygon polygon(const Json& rings)
{
    VelBrx::MapPolygon polygon;
    for (const Json& ring : rings) {
        polygon.emplace_back();
        for (const Json& json : ring)
            polygon.back().push_back(position(json));
        if (polygon.back().size() > 1 && polygon.back().front() == polygon.back().back())
            polygon.back().pop_back();
    }
    return polygon;
}

void add(const Json& json, Polygons& polygons, int depth)
{
    if (depth > kDeepest || json.is_null()) return;
    const std::string type = json.at("type").get<std::string>();
    const auto addAll = [&](const char* member) {
        for (const Json& part : json.at(member))
            add(part, polygons, depth + 1);
    };
    if (type == "FeatureCollection")
        addAll("features");
    else if (type == "GeometryCollection")
        addAll("geometries");
    else if (type == "Feature")
        add(json.at("geometry"), polygons, depth + 1);
    else if (type == "Polygon")
        polygons.push_back(polygon(json.at("coordinates")));
    else if (type == "MultiPolygon")
        for (const Json& rings : json.at("coordinates"))
            polygons.push_back(polygon(rings));
}

} // namespace

std::vector<VelBrx::MapPolygon> readPolygons(const std::string& path)
{
    std::ifstream file(path);
    if (!file) throw CommandError(path + ": " + std::strerror(errno));
    Polygons polygons;
    try {
        add(Json::parse(file), polygons, 0);
    } catch (const Json::exception&) {
        throw CommandError(path + ": is no GeoJSON file with polygons");
    }
    if (polygons.empty()) throw CommandError(path + ": has no polygon");
    return polygons;
}

#include "crs/GeoTiffSystem.h"

#include <proj_experimental.h>

#include <cstdio>
#include <initializer_list>

namespace {

enum Key : uint16_t
{
    CITATION = 1026,
    GEOGRAPHIC_SYSTEM = 2048,
    GEOGRAPHIC_CITATION = 2049,
    DATUM = 2050,
    ANGULAR_UNIT = 2054,
    ELLIPSOID = 2056,
    SEMI_MAJOR_AXIS = 2057,
    SEMI_MINOR_AXIS = 2058,
    INVERSE_FLATTENING = 2059,
    PROJECTED_SYSTEM = 3072,
    PROJECTED_CITATION = 3073,
    PROJECTION = 3074,
    TRANSFORMATION = 3075,
    LINEAR_UNIT = 3076,
    LINEAR_UNIT_SIZE = 3077,
    FIRST_PARALLEL = 3078,
    SECOND_PARALLEL = 3079,
    ORIGIN_LONGITUDE = 3080,
    ORIGIN_LATITUDE = 3081,
    FALSE_EASTING = 3082,
    FALSE_NORTHING = 3083,
    FALSE_ORIGIN_LONGITUDE = 3084,
    FALSE_ORIGIN_LATITUDE = 3085,
    FALSE_ORIGIN_EASTING = 3086,
    FALSE_ORIGIN_NORTHING = 3087,
    CENTRE_LONGITUDE = 3088,
    CENTRE_LATITUDE = 3089,
    CENTRE_EASTING = 3090,
    CENTRE_NORTHING = 3091,
    ORIGIN_SCALE = 3092,
    CENTRE_SCALE = 3093,
    AZIMUTH = 3094,
    POLE_LONGITUDE = 3095,
    VERTICAL_SYSTEM = 4096,
    VERTICAL_UNIT = 4099
};

struct Unit
{
    std::string name;
    int code = 0;
    double size = 0; ///< metres or radians; 0: not known
};

Unit unitOf(int code)
{
    Unit unit;
    const char* name = nullptr;
    const char* category = nullptr;
    if (code != 0 && proj_uom_get_info_from_database(Proj::context(), "EPSG", std::to_string(code).c_str(),
                                                     &name, &unit.size, &category)) {
        unit.name = name;
        unit.code = code;
    }
    return unit;
}

Unit linearUnitOf(const GeoKeys& keys)
{
    Unit unit = unitOf(keys.code(LINEAR_UNIT));
    const std::optional<double> size = keys.number(LINEAR_UNIT_SIZE);
    if (unit.size == 0 && size && *size > 0) unit = {"unit", 0, *size};
    return unit;
}

/// The first of the keys that is there; writers differ in which they use.
double firstOf(const GeoKeys& keys, std::initializer_list<Key> which, double otherwise)
{
    for (const Key key : which)
        if (const std::optional<double> number = keys.number(key)) return *number;
    return otherwise;
}

/// A name between quotation marks of WKT.
std::string quoted(const std::string& name)
{
    std::string text = "\"";
    for (const char letter : name)
        text += letter == '"' ? '\'' : letter;
    return text + '"';
}

std::string exact(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

std::string nodeOf(const char* name, const std::string& content)
{
    return std::string(",") + name + "[" + content + "]";
}

std::string authority(int code)
{
    return code == 0 ? std::string() : nodeOf("AUTHORITY", "\"EPSG\"," + quoted(std::to_string(code)));
}

/// The figure of the earth as a node of WKT; empty where it is not stated.
std::string spheroidOf(const GeoKeys& keys)
{
    const int code = keys.code(ELLIPSOID);
    double major = firstOf(keys, {SEMI_MAJOR_AXIS}, 0);
    double inverseFlattening = firstOf(keys, {INVERSE_FLATTENING}, 0);
    const double minor = firstOf(keys, {SEMI_MINOR_AXIS}, 0);
    if (minor > 0 && major > minor) inverseFlattening = major / (major - minor);
    std::string name = "unknown";
    if (const Proj::Object known = code == 0 ? nullptr : Proj::fromEpsg(code, PJ_CATEGORY_ELLIPSOID)) {
        proj_ellipsoid_get_parameters(Proj::context(), known.get(), &major, nullptr, nullptr,
                                      &inverseFlattening);
        name = proj_get_name(known.get());
    }
    if (!(major > 0)) return {};
    return nodeOf("SPHEROID",
                  quoted(name) + "," + exact(major) + "," + exact(inverseFlattening) + authority(code));
}

/// The node GEOGCS of WKT for what no code stands for; empty where too little is stated.
std::string userDefinedGeographic(const GeoKeys& keys)
{
    std::string spheroid = spheroidOf(keys);
    std::string name = "unknown";
    int code = keys.code(DATUM);
    const Proj::Object datum = code == 0 ? nullptr : Proj::fromEpsg(code, PJ_CATEGORY_DATUM);
    if (datum) {
        name = proj_get_name(datum.get());
        const Proj::Object figure(proj_get_ellipsoid(Proj::context(), datum.get()));
        double major = 0;
        double inverseFlattening = 0;
        if (figure && proj_ellipsoid_get_parameters(Proj::context(), figure.get(), &major, nullptr, nullptr,
                                                    &inverseFlattening))
            spheroid = nodeOf("SPHEROID", quoted(proj_get_name(figure.get())) + "," + exact(major) + "," +
                                              exact(inverseFlattening));
    } else {
        code = 0;
    }
    if (spheroid.empty()) return {};
    const std::string title = keys.text(GEOGRAPHIC_CITATION);
    return "GEOGCS[" + quoted(title.empty() ? "unknown" : title) +
           nodeOf("DATUM", quoted(name) + spheroid + authority(code)) +
           ",PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]]";
}

Proj::Object geographicOf(const GeoKeys& keys)
{
    const int code = keys.code(GEOGRAPHIC_SYSTEM);
    if (code != 0) return Proj::fromEpsg(code);
    const std::string wkt = userDefinedGeographic(keys);
    return wkt.empty() ? nullptr : Proj::fromWkt(wkt);
}

/// The parameters that a projection takes.
enum Parameters : unsigned
{
    LATITUDE = 1,
    LONGITUDE = 2,
    PARALLELS = 4,
    SCALE = 8,
    DIRECTION = 16,
    CENTRE_NAMES = 32 ///< WKT calls origin and longitude those of the centre
};

struct Projection
{
    int transformation; ///< of the key
    const char* name;   ///< in WKT
    unsigned parameters;
};

constexpr Projection kProjections[] = {
    {1, "Transverse_Mercator", LATITUDE | LONGITUDE | SCALE},
    {3, "Hotine_Oblique_Mercator", LATITUDE | LONGITUDE | SCALE | DIRECTION | CENTRE_NAMES},
    {7, "Mercator_1SP", LATITUDE | LONGITUDE | SCALE},
    {8, "Lambert_Conformal_Conic_2SP", LATITUDE | LONGITUDE | PARALLELS},
    {9, "Lambert_Conformal_Conic_1SP", LATITUDE | LONGITUDE | SCALE},
    {10, "Lambert_Azimuthal_Equal_Area", LATITUDE | LONGITUDE | CENTRE_NAMES},
    {11, "Albers_Conic_Equal_Area", LATITUDE | LONGITUDE | PARALLELS | CENTRE_NAMES},
    {15, "Polar_Stereographic", LATITUDE | LONGITUDE | SCALE},
    {16, "Oblique_Stereographic", LATITUDE | LONGITUDE | SCALE},
    {18, "Cassini_Soldner", LATITUDE | LONGITUDE},
};

std::string parameter(const char* name, double value)
{
    return nodeOf("PARAMETER", quoted(name) + "," + exact(value));
}

/// The nodes PROJECTION and PARAMETER of WKT.
std::string projectionOf(const GeoKeys& keys, const Projection& projection)
{
    const bool centre = projection.parameters & CENTRE_NAMES;
    std::string nodes = nodeOf("PROJECTION", quoted(projection.name));
    const auto add = [&](unsigned what, const char* name, double value) {
        if (projection.parameters & what) nodes += parameter(name, value);
    };
    add(LATITUDE, centre ? "latitude_of_center" : "latitude_of_origin",
        firstOf(keys, {FALSE_ORIGIN_LATITUDE, ORIGIN_LATITUDE, CENTRE_LATITUDE}, 0));
    add(LONGITUDE, centre ? "longitude_of_center" : "central_meridian",
        firstOf(keys, {FALSE_ORIGIN_LONGITUDE, ORIGIN_LONGITUDE, CENTRE_LONGITUDE, POLE_LONGITUDE}, 0));
    add(PARALLELS, "standard_parallel_1", firstOf(keys, {FIRST_PARALLEL}, 0));
    add(PARALLELS, "standard_parallel_2", firstOf(keys, {SECOND_PARALLEL}, 0));
    add(DIRECTION, "azimuth", firstOf(keys, {AZIMUTH}, 0));
    add(DIRECTION, "rectified_grid_angle", firstOf(keys, {AZIMUTH}, 0));
    add(SCALE, "scale_factor", firstOf(keys, {ORIGIN_SCALE, CENTRE_SCALE}, 1));
    return nodes +
           parameter("false_easting",
                     firstOf(keys, {FALSE_ORIGIN_EASTING, FALSE_EASTING, CENTRE_EASTING}, 0)) +
           parameter("false_northing",
                     firstOf(keys, {FALSE_ORIGIN_NORTHING, FALSE_NORTHING, CENTRE_NORTHING}, 0));
}

/// A projection with parameters of its own on a geographic system.
Proj::Object userDefinedProjected(const GeoKeys& keys, std::string& problem)
{
    const Proj::Object geographic = geographicOf(keys);
    if (!geographic) {
        problem = "its keys name no geographic system that is known";
        return nullptr;
    }
    if (keys.code(ANGULAR_UNIT) != 0 && keys.code(ANGULAR_UNIT) != 9102) {
        problem = "its keys give angles in another unit than degrees";
        return nullptr;
    }
    const Unit stated = linearUnitOf(keys);
    const Unit unit = stated.size > 0 ? stated : Unit{"metre", 9001, 1};
    std::string title = keys.text(PROJECTED_CITATION);
    if (title.empty()) title = keys.text(CITATION);
    if (const int code = keys.code(PROJECTION)) {
        const Proj::Object projection = Proj::fromEpsg(code, PJ_CATEGORY_COORDINATE_OPERATION);
        const Proj::Object axes(proj_create_cartesian_2D_cs(Proj::context(), PJ_CART2D_EASTING_NORTHING,
                                                            unit.name.c_str(), unit.size));
        if (projection && axes)
            return Proj::Object(proj_create_projected_crs(Proj::context(), title.c_str(), geographic.get(),
                                                          projection.get(), axes.get()));
    }
    for (const Projection& projection : kProjections) {
        if (projection.transformation != keys.code(TRANSFORMATION)) continue;
        return Proj::fromWkt(
            "PROJCS[" + quoted(title.empty() ? "unknown" : title) + "," +
            Proj::wktOf(geographic.get(), PJ_WKT1_GDAL) + projectionOf(keys, projection) +
            nodeOf("UNIT", quoted(unit.name) + "," + exact(unit.size) + authority(unit.code)) + "]");
    }
    problem = "its keys give a projection (" + std::to_string(keys.code(TRANSFORMATION)) +
              ") that is not known here";
    return nullptr;
}

/// The system with the unit that the keys state beside its code.
Proj::Object withUnit(Proj::Object system, const Unit& unit)
{
    if (!system || unit.size <= 0) return system;
    const Proj::Object axes(proj_crs_get_coordinate_system(Proj::context(), system.get()));
    double size = 0;
    if (!axes ||
        !proj_cs_get_axis_info(Proj::context(), axes.get(), 0, nullptr, nullptr, nullptr, &size, nullptr,
                               nullptr, nullptr) ||
        size == unit.size)
        return system;
    Proj::Object altered(proj_crs_alter_cs_linear_unit(
        Proj::context(), system.get(), unit.name.c_str(), unit.size, unit.code ? "EPSG" : nullptr,
        unit.code ? std::to_string(unit.code).c_str() : nullptr));
    return altered ? std::move(altered) : std::move(system);
}

} // namespace

GeoTiffSystem readGeoTiffSystem(const GeoKeys& keys)
{
    GeoTiffSystem system;
    const int projected = keys.code(PROJECTED_SYSTEM);
    if (projected != 0)
        system.horizontal = withUnit(Proj::fromEpsg(projected), linearUnitOf(keys));
    else if (keys.isUserDefined(PROJECTED_SYSTEM) || keys.code(TRANSFORMATION) != 0)
        system.horizontal = userDefinedProjected(keys, system.problem);
    else
        system.horizontal = geographicOf(keys);
    const int named = projected != 0 ? projected : keys.code(GEOGRAPHIC_SYSTEM);
    if (!system.horizontal && system.problem.empty() && named != 0)
        system.problem = "its keys name EPSG:" + std::to_string(named) + ", which is no system that is known";

    const Unit vertical = unitOf(keys.code(VERTICAL_UNIT));
    system.verticalUnitSize = vertical.size;
    if (const int code = keys.code(VERTICAL_SYSTEM)) {
        Proj::Object heights = Proj::fromEpsg(code);
        if (heights && proj_get_type(heights.get()) == PJ_TYPE_VERTICAL_CRS)
            system.vertical = withUnit(std::move(heights), vertical);
    }
    return system;
}

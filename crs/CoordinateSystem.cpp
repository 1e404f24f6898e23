#include "crs/CoordinateSystem.h"

#include "crs/GeoKeys.h"
#include "crs/GeoTiffSystem.h"
#include "crs/Proj.h"

#include <proj_experimental.h>

#include <cmath>
#include <cstdlib>
#include <vector>

using VelBrx::ProjectionRecords;
using VelBrx::Status;

namespace {

constexpr size_t kMaxNameSize = 200;

bool isBound(const PJ* object)
{
    return proj_get_type(object) == PJ_TYPE_BOUND_CRS;
}

/// A system without a way to WGS 84 that some writers wrap around it.
Proj::Object unbound(Proj::Object system)
{
    while (system && isBound(system.get()))
        system.reset(proj_get_source_crs(Proj::context(), system.get()));
    return system;
}

bool areEquivalent(const PJ* a, const PJ* b)
{
    return proj_is_equivalent_to_with_ctx(Proj::context(), a, b,
                                          PJ_COMP_EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS) != 0;
}

/// "EPSG:25832" as the system states it, or empty.
std::string statedCode(const PJ* system)
{
    const char* const authority = proj_get_id_auth_name(system, 0);
    const char* const code = proj_get_id_code(system, 0);
    return authority && code ? std::string(authority) + ":" + code : std::string();
}

std::string nameOf(const PJ* object)
{
    const char* const name = proj_get_name(object);
    return name ? std::string(name).substr(0, kMaxNameSize) : std::string();
}

/// What the EPSG's list has as the same as `system`, under whatever name.
Proj::Object identify(const PJ* system)
{
    PJ_OBJ_LIST* const found = proj_identify(Proj::context(), system, "EPSG", nullptr, nullptr);
    Proj::Object same;
    for (int i = 0; found && i < proj_list_get_count(found) && !same; ++i) {
        same.reset(proj_list_get(Proj::context(), found, i));
        if (!same || !areEquivalent(same.get(), system)) same.reset();
    }
    proj_list_destroy(found);
    return same;
}

/// Finds a system in the EPSG's list by its name, or else by what it is.
Proj::Object listed(const PJ* system)
{
    if (Proj::Object same = identify(system)) return same;
    const Proj::Object nameless(proj_alter_name(Proj::context(), system, "unknown"));
    return nameless ? identify(nameless.get()) : nullptr;
}

/// What people call a system: as it says itself, or as the list does where it states no code.
struct Naming
{
    std::string name;
    std::string code;

    explicit Naming(const PJ* system) : name(nameOf(system)), code(statedCode(system))
    {
        if (!code.empty()) return;
        const Proj::Object same = listed(system);
        if (!same) return;
        name = nameOf(same.get());
        code = statedCode(same.get());
    }
};

std::string symbolOf(const CoordinateSystem::Unit& unit)
{
    const auto is = [&](double size) { return std::abs(unit.size / size - 1) < 1e-9; };
    if (unit.isAngle) return unit.name == "degree" ? "°" : unit.name;
    if (is(1)) return "m";
    if (is(0.3048)) return "ft";
    if (is(1200.0 / 3937)) return "US ft";
    return unit.name;
}

/// Of an axis; none where the system has not so many.
std::optional<CoordinateSystem::Unit> unitOf(const PJ* system, int axis)
{
    const Proj::Object axes(proj_crs_get_coordinate_system(Proj::context(), system));
    if (!axes || axis >= proj_cs_get_axis_count(Proj::context(), axes.get())) return std::nullopt;
    CoordinateSystem::Unit unit;
    const char* name = nullptr;
    if (!proj_cs_get_axis_info(Proj::context(), axes.get(), axis, nullptr, nullptr, nullptr, &unit.size,
                               &name, nullptr, nullptr) ||
        !(unit.size > 0) || !std::isfinite(unit.size))
        return std::nullopt;
    unit.name = name ? std::string(name).substr(0, kMaxNameSize) : "unit";
    unit.isAngle = proj_cs_get_type(Proj::context(), axes.get()) == PJ_CS_TYPE_ELLIPSOIDAL && axis < 2;
    unit.symbol = symbolOf(unit);
    return unit;
}

CoordinateSystem::Unit lengthUnit(double size)
{
    CoordinateSystem::Unit unit;
    unit.size = size;
    unit.name = unit.symbol = symbolOf(unit);
    if (unit.symbol.empty()) unit.name = unit.symbol = "unit";
    return unit;
}

/// Whether one system has the coordinates of the other to a tenth of a millimetre: writers round and word the
/// parameters of a projection differently. Both stand on the same datum.
bool haveSameCoordinates(const PJ* a, const PJ* b, double unitSize)
{
    const Proj::Object baseA(proj_crs_get_geodetic_crs(Proj::context(), a));
    const Proj::Object baseB(proj_crs_get_geodetic_crs(Proj::context(), b));
    if (!baseA || !baseB || !areEquivalent(baseA.get(), baseB.get())) return false;
    const Proj::Object raw(proj_create_crs_to_crs_from_pj(Proj::context(), a, b, nullptr, nullptr));
    const Proj::Object way(raw ? proj_normalize_for_visualization(Proj::context(), raw.get()) : nullptr);
    const Proj::Object parameters(proj_crs_get_coordoperation(Proj::context(), a));
    if (!way || !parameters) return false;
    // Around the point where its false coordinates are, every projection is sound.
    double origin[2] = {0, 0};
    for (int i = 0; i < proj_coordoperation_get_param_count(Proj::context(), parameters.get()); ++i) {
        const char* name = nullptr;
        double value = 0;
        double size = 0;
        if (!proj_coordoperation_get_param(Proj::context(), parameters.get(), i, &name, nullptr, nullptr,
                                           &value, nullptr, &size, nullptr, nullptr, nullptr, nullptr))
            continue;
        const std::string text = name ? name : "";
        if (text.find("asting") != std::string::npos) origin[0] = value * size / unitSize;
        if (text.find("orthing") != std::string::npos) origin[1] = value * size / unitSize;
    }
    constexpr double kReach = 2e5;      // metres
    constexpr double kTolerance = 1e-4; // metres
    for (const double east : {-kReach, 0.0, kReach}) {
        for (const double north : {-kReach, 0.0, kReach}) {
            const PJ_COORD from = proj_coord(origin[0] + east / unitSize, origin[1] + north / unitSize, 0, 0);
            const PJ_COORD to = proj_trans(way.get(), PJ_FWD, from);
            if (!(std::hypot(to.xy.x - from.xy.x, to.xy.y - from.xy.y) * unitSize <= kTolerance))
                return false;
        }
    }
    return true;
}

bool areSameHorizontally(const PJ* a, const PJ* b, const CoordinateSystem::Unit& unit)
{
    if (areEquivalent(a, b)) return true;
    return proj_get_type(a) == PJ_TYPE_PROJECTED_CRS && proj_get_type(b) == PJ_TYPE_PROJECTED_CRS &&
           haveSameCoordinates(a, b, unit.size);
}

bool areSameSize(const CoordinateSystem::Unit& a, const CoordinateSystem::Unit& b)
{
    return a.isAngle == b.isAngle && std::abs(a.size / b.size - 1) < 1e-9;
}

bool areSame(const ProjectionRecords& a, const ProjectionRecords& b)
{
    return a.wkt == b.wkt && a.geoKeys == b.geoKeys && a.geoDoubles == b.geoDoubles &&
           a.geoTexts == b.geoTexts;
}

} // namespace

/// Makes systems of what PROJ knows about them.
class CoordinateSystem::Reader
{
public:
    /// A system of any kind with its parts; false where it is not one for points.
    bool take(Proj::Object whole)
    {
        whole = unbound(std::move(whole));
        if (!whole) return false;
        Proj::Object horizontal;
        Proj::Object vertical;
        if (proj_get_type(whole.get()) == PJ_TYPE_COMPOUND_CRS) {
            horizontal = part(whole.get(), 0);
            vertical = part(whole.get(), 1);
        } else {
            horizontal.reset(proj_clone(Proj::context(), whole.get()));
        }
        if (!horizontal || !take(horizontal.get(), vertical.get())) return false;
        _system._wholeText = Proj::wktOf(whole.get(), PJ_WKT2_2019);
        if (const std::string code = vertical ? statedCode(whole.get()) : ""; !code.empty())
            _system._code = code;
        return true;
    }

    bool take(const PJ* horizontal, const PJ* vertical)
    {
        const std::optional<Unit> unit = unitOf(horizontal, 0);
        if (!unit || proj_get_type(horizontal) == PJ_TYPE_VERTICAL_CRS) return false;
        _system._horizontal = *unit;
        _system._horizontalText = Proj::wktOf(horizontal, PJ_WKT2_2019);
        _system._wholeText = _system._horizontalText;
        const Naming naming(horizontal);
        _system._name = naming.name;
        _system._code = naming.code;
        _system._vertical = unitOf(horizontal, 2);
        _system._statesHeights = _system._vertical.has_value();
        if (vertical) {
            _system._verticalText = Proj::wktOf(vertical, PJ_WKT2_2019);
            const Naming heights(vertical);
            _system._name += " + " + heights.name;
            _system._code = joined(_system._code, heights.code);
            _system._vertical = unitOf(vertical, 0);
            _system._statesHeights = true;
        }
        if (!_system._vertical && !unit->isAngle) _system._vertical = unit;
        return !_system._horizontalText.empty();
    }

    bool take(const GeoTiffSystem& keys)
    {
        if (!keys.horizontal || !take(keys.horizontal.get(), keys.vertical.get())) return false;
        if (!keys.vertical && keys.verticalUnitSize > 0) {
            _system._vertical = lengthUnit(keys.verticalUnitSize);
            _system._statesHeights = true;
        }
        return true;
    }

    CoordinateSystem system() { return std::move(_system); }

private:
    static Proj::Object part(const PJ* whole, int index)
    {
        return unbound(Proj::Object(proj_crs_get_sub_crs(Proj::context(), whole, index)));
    }

    /// "EPSG:25832+7837"; empty where one has none, or another list.
    static std::string joined(const std::string& horizontal, const std::string& vertical)
    {
        const size_t end = horizontal.find(':') + 1;
        if (horizontal.empty() || vertical.compare(0, end, horizontal, 0, end) != 0) return {};
        return horizontal + "+" + vertical.substr(end);
    }

    CoordinateSystem _system;
};

Status CoordinateSystem::read(const ProjectionRecords& records, std::optional<CoordinateSystem>& system)
{
    // The files of a survey state the same, one after the other.
    struct Last
    {
        ProjectionRecords records;
        Status status;
        std::optional<CoordinateSystem> system;
    };
    thread_local Last last;
    if (!areSame(last.records, records)) {
        last.status = readAnew(records, last.system);
        last.records = records;
    }
    system = last.system;
    return last.status;
}

Status CoordinateSystem::readAnew(const ProjectionRecords& records, std::optional<CoordinateSystem>& system)
{
    system.reset();
    if (records.isEmpty()) return {};
    std::string problem;
    if (!records.wkt.empty()) {
        Reader reader;
        if (reader.take(Proj::fromWkt(records.wkt))) {
            system = reader.system();
            return {};
        }
        problem = records.wkt.size() > Proj::kMaxWktSize ? "its WKT is too long" : Proj::lastError();
        if (problem.empty()) problem = "its WKT describes none";
    }
    if (!records.geoKeys.empty()) {
        const GeoTiffSystem keys = readGeoTiffSystem(GeoKeys(records));
        Reader reader;
        if (reader.take(keys)) {
            system = reader.system();
            return {};
        }
        if (problem.empty()) problem = keys.problem;
    }
    return problem.empty() ? Status() : Status::failure("its coordinate system cannot be known: " + problem);
}

Status CoordinateSystem::find(const std::string& code, std::optional<CoordinateSystem>& system)
{
    system.reset();
    const size_t colon = code.find(':');
    const size_t digits = code.find_first_not_of("0123456789+", colon + 1);
    Reader reader;
    // PROJ takes more than codes: names, files, pipelines.
    if (colon == std::string::npos || colon == 0 || colon + 1 == code.size() || digits != std::string::npos ||
        code.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz") != colon ||
        !reader.take(Proj::Object(proj_create(Proj::context(), code.c_str()))))
        return Status::failure(code + ": names no coordinate system" +
                               (Proj::lastError().empty() ? "" : " (" + Proj::lastError() + ")") +
                               "; give a code such as EPSG:25832, or with heights EPSG:25832+7837");
    system = reader.system();
    return {};
}

bool CoordinateSystem::isSameAs(const CoordinateSystem& other) const
{
    if (!areSameSize(_horizontal, other._horizontal)) return false;
    if (_statesHeights && other._statesHeights && !areSameSize(*_vertical, *other._vertical)) return false;
    if (_horizontalText != other._horizontalText) {
        const Proj::Object a = Proj::fromWkt(_horizontalText);
        const Proj::Object b = Proj::fromWkt(other._horizontalText);
        if (!a || !b || !areSameHorizontally(a.get(), b.get(), _horizontal)) return false;
    }
    if (_verticalText.empty() || other._verticalText.empty() || _verticalText == other._verticalText)
        return true;
    const Proj::Object a = Proj::fromWkt(_verticalText);
    const Proj::Object b = Proj::fromWkt(other._verticalText);
    return a && b && areEquivalent(a.get(), b.get());
}

std::string CoordinateSystem::description() const
{
    std::string text = _name;
    if (!_code.empty()) text += " (" + _code + ")";
    text += ", " + _horizontal.name;
    if (_vertical && !areSameSize(*_vertical, _horizontal)) text += ", heights in " + _vertical->name;
    return text;
}

std::string CoordinateSystem::wkt() const
{
    const Proj::Object whole = Proj::fromWkt(_wholeText);
    return whole ? Proj::wktOf(whole.get(), PJ_WKT1_GDAL) : std::string();
}

std::string differenceOfSystems(const ProjectionRecords& a, const ProjectionRecords& b)
{
    std::optional<CoordinateSystem> systemOfA;
    std::optional<CoordinateSystem> systemOfB;
    const Status readA = CoordinateSystem::read(a, systemOfA);
    const Status readB = CoordinateSystem::read(b, systemOfB);
    if (!readA || !readB) return (readB ? readA : readB).message();
    if (!systemOfA && !systemOfB) return {};
    if (systemOfA && systemOfB && systemOfA->isSameAs(*systemOfB)) return {};
    const std::string known = systemOfA ? systemOfA->description() : "none";
    const std::string differing = systemOfB ? systemOfB->description() : "none";
    if (known == differing) return differing + ", but with other parameters";
    return differing + " instead of " + known;
}

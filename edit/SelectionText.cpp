#include "edit/AttributeKeys.h"

#include <VelOsgDBBrx/PointSelection.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <functional>
#include <limits>
#include <map>

using json = nlohmann::ordered_json;

namespace VelOsgDBBrx {

namespace {

using VelBrx::Status;
using Classes = std::bitset<256>;

constexpr const char* kPlaces[] = {"everywhere", "screen", "map", "box", "sphere", "grown"};

/// What is wrong with a text. Thrown and caught in this file.
struct Malformed
{
    std::string what;
};

/// Any text on one line.
std::string quoted(const std::string& text)
{
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

[[noreturn]] void expected(const std::string& key, const std::string& what)
{
    throw Malformed{quoted(key) + ": expected " + what};
}

double toNumber(const std::string& key, const json& value)
{
    if (!value.is_number()) expected(key, "a number");
    return value.get<double>();
}

int toWhole(const std::string& key, const json& value)
{
    const double number = toNumber(key, value);
    if (!(std::abs(number) <= std::numeric_limits<int>::max()) || number != std::trunc(number))
        expected(key, "a whole number");
    return static_cast<int>(number);
}

bool toFlag(const std::string& key, const json& value)
{
    if (!value.is_boolean()) expected(key, "true or false");
    return value.get<bool>();
}

/// `count` numbers.
void readNumbers(const std::string& key, const json& value, double* numbers, size_t count)
{
    const bool fits = value.is_array() && value.size() == count &&
                      std::all_of(value.begin(), value.end(), [](const json& n) { return n.is_number(); });
    if (!fits) expected(key, std::to_string(count) + " numbers in brackets");
    std::transform(value.begin(), value.end(), numbers, [](const json& n) { return n.get<double>(); });
}

template <class Vec>
Vec toVector(const std::string& key, const json& value)
{
    Vec vector;
    readNumbers(key, value, vector.ptr(), Vec::num_components);
    return vector;
}

osg::Matrixd toMatrix(const std::string& key, const json& value)
{
    osg::Matrixd matrix;
    readNumbers(key, value, matrix.ptr(), 16);
    return matrix;
}

/// A list of what `read(key, item)` gives.
template <class Read>
auto toList(const std::string& key, const json& value, Read read)
{
    if (!value.is_array()) expected(key, "a list in brackets");
    std::vector<decltype(read(key, value))> list;
    for (const json& item : value)
        list.push_back(read(key + " " + std::to_string(list.size() + 1), item));
    return list;
}

ValueRange toRange(const std::string& key, const json& value)
{
    const char* const kWhat = "two numbers in brackets, null for an open end";
    if (!value.is_array() || value.size() != 2) expected(key, kWhat);
    ValueRange range;
    for (auto [end, item] : {std::pair(&range.low, &value[0]), std::pair(&range.high, &value[1])}) {
        if (!item->is_number() && !item->is_null()) expected(key, kWhat);
        if (item->is_number()) *end = item->get<double>();
    }
    return range;
}

Classes toClasses(const std::string& key, const json& value)
{
    Classes classes;
    for (const int code : toList(key, value, toWhole)) {
        if (code < 0 || code > 255) expected(key, "classes from 0 to 255");
        classes.set(static_cast<size_t>(code));
    }
    return classes;
}

using Members = std::map<std::string, std::function<void(const std::string& key, const json& value)>>;

/// A member that goes where `target` is, as `to(key, value)` reads it.
template <class Target, class To>
Members::mapped_type into(Target& target, To to)
{
    return [&target, to](const std::string& key, const json& value) { target = to(key, value); };
}

/// Hands each member of an object to its reader. No other may be there, and `required` ones must.
void readObject(const std::string& name, const json& object, const Members& members,
                const std::vector<std::string>& required = {})
{
    if (!object.is_object()) expected(name, "an object in braces");
    for (const auto& [key, value] : object.items()) {
        const auto member = members.find(key);
        if (member == members.end())
            throw Malformed{quoted(key) + " is no key of " + quoted(name) + "; see docs/selections.md"};
        member->second(key, value);
    }
    for (const std::string& key : required)
        if (!object.contains(key)) throw Malformed{quoted(name) + ": needs " + quoted(key)};
}

ScreenPlace toScreen(const std::string& name, const json& value)
{
    ScreenPlace place;
    readObject(
        name, value,
        {{"polygon", [&](auto& key, auto& list) { place.polygon = toList(key, list, toVector<osg::Vec2d>); }},
         {"matrix", into(place.vpw, toMatrix)},
         {"width", into(place.width, toWhole)},
         {"height", into(place.height, toWhole)},
         {"frontTolerance", into(place.frontTolerance, toNumber)},
         {"frontRadius", into(place.frontRadius, toNumber)}},
        {"polygon", "matrix", "width", "height"});
    if (value.contains("frontRadius") && !place.frontTolerance)
        throw Malformed{R"("frontRadius" belongs to a "frontTolerance")"};
    return place;
}

GrownPlace toGrown(const std::string& name, const json& value)
{
    GrownPlace place;
    readObject(name, value,
               {{"from", into(place.from, toVector<osg::Vec3d>)},
                {"distance", into(place.distance, toNumber)},
                {"angle", into(place.angle, toNumber)},
                {"limit", into(place.limit, toWhole)}},
               {"from", "distance"});
    return place;
}

BoxPlace toBox(const std::string& name, const json& value)
{
    const std::vector<osg::Vec3d> corners = toList(name, value, toVector<osg::Vec3d>);
    if (corners.size() != 2) expected(name, "two corners, the lowest first");
    return {corners[0], corners[1]};
}

SpherePlace toSphere(const std::string& name, const json& value)
{
    SpherePlace place;
    readObject(
        name, value,
        {{"center", into(place.center, toVector<osg::Vec3d>)}, {"radius", into(place.radius, toNumber)}},
        {"center", "radius"});
    return place;
}

ScreenPolygon toPolygon(const std::string& name, const json& value)
{
    ScreenPolygon polygon;
    readObject(name, value,
               {{"polygon",
                 [&](auto& key, auto& list) { polygon.vertices = toList(key, list, toVector<osg::Vec2d>); }},
                {"matrix", into(polygon.vpw, toMatrix)},
                {"selects", into(polygon.selects, toFlag)}},
               {"polygon", "matrix"});
    return polygon;
}

std::vector<ScreenPolygon> toPolygons(const std::string& key, const json& value)
{
    return toList(key, value, toPolygon);
}

ScreenSegment toSegment(const std::string& name, const json& value)
{
    ScreenSegment segment;
    readObject(name, value,
               {{"hidesSelected", into(segment.hidesSelected, toFlag)},
                {"polygons", into(segment.polygons, toPolygons)}},
               {"hidesSelected", "polygons"});
    return segment;
}

AttributeRanges toAttributes(const std::string& name, const json& value)
{
    AttributeRanges attributes;
    Members members = {{"classes", into(attributes.classes, toClasses)},
                       {"hidden", into(attributes.hidden, toFlag)}};
    for (const auto& [key, range] : kAttributeKeys)
        members[key] = into(attributes.*range, toRange);
    readObject(name, value, members);
    return attributes;
}

DrawnPoints toDrawn(const std::string& name, const json& value)
{
    DrawnPoints drawn;
    const auto toPlanes = [](const std::string& key, const json& list) {
        return toList(key, list, toVector<osg::Vec4d>);
    };
    readObject(name, value,
               {{"planes", into(drawn.clipPlanes, toPlanes)},
                {"sections", into(drawn.sectionPlanes, toPlanes)},
                {"planesPerSection", into(drawn.planesPerSection, toWhole)},
                {"classes", into(drawn.shownClasses, toClasses)},
                {"segments", [&](auto& key, auto& list) { drawn.segments = toList(key, list, toSegment); }}});
    return drawn;
}

PointSelection toSelection(const json& object)
{
    PointSelection selection;
    ValueRange heights;
    const auto toEverywhere = [](const std::string& key, const json& value) {
        if (!toFlag(key, value)) expected(key, "true");
        return Everywhere();
    };
    const auto toMap = [](const std::string& key, const json& value) {
        return MapPlace{toList(key, value, toVector<osg::Vec2d>), {}};
    };
    readObject("points", object,
               {{"everywhere", into(selection.place, toEverywhere)},
                {"screen", into(selection.place, toScreen)},
                {"map", into(selection.place, toMap)},
                {"heights", into(heights, toRange)},
                {"box", into(selection.place, toBox)},
                {"sphere", into(selection.place, toSphere)},
                {"grown", into(selection.place, toGrown)},
                {"outside", into(selection.outside, toFlag)},
                {"selected", into(selection.selected, toPolygons)},
                {"where", into(selection.attributes, toAttributes)},
                {"drawn", into(selection.drawn, toDrawn)},
                {"undrawnToo", into(selection.undrawnToo, toFlag)}});
    if (std::count_if(std::begin(kPlaces), std::end(kPlaces),
                      [&](const char* key) { return object.contains(key); }) != 1)
        throw Malformed{R"(give one of "everywhere", "screen", "map", "box", "sphere", "grown")"};
    if (auto* map = std::get_if<MapPlace>(&selection.place))
        map->heights = heights;
    else if (object.contains("heights"))
        throw Malformed{R"("heights" belong to a "map"; "height" in "where" goes with every place)"};
    return selection;
}

template <class Vec>
json numbers(const Vec& vector)
{
    return std::vector<double>(vector.ptr(), vector.ptr() + Vec::num_components);
}

json numbers(const osg::Matrixd& matrix)
{
    return std::vector<double>(matrix.ptr(), matrix.ptr() + 16);
}

/// A list of what `write(item)` gives.
template <class List, class Write>
json list(const List& items, Write write)
{
    json written = json::array();
    for (const auto& item : items)
        written.push_back(write(item));
    return written;
}

template <class Vec>
json vectors(const std::vector<Vec>& items)
{
    return list(items, [](const Vec& vector) { return numbers(vector); });
}

json range(const ValueRange& values)
{
    return list(std::array{values.low, values.high},
                [](double end) { return std::isinf(end) ? json() : json(end); });
}

json codes(const Classes& classes)
{
    json written = json::array();
    for (size_t code = 0; code < classes.size(); ++code)
        if (classes[code]) written.push_back(code);
    return written;
}

json polygons(const std::vector<ScreenPolygon>& items)
{
    return list(items, [](const ScreenPolygon& polygon) {
        return json{{"polygon", vectors(polygon.vertices)},
                    {"matrix", numbers(polygon.vpw)},
                    {"selects", polygon.selects}};
    });
}

void addPlace(const Everywhere&, json& object)
{
    object["everywhere"] = true;
}

void addPlace(const ScreenPlace& place, json& object)
{
    object["screen"] = {{"polygon", vectors(place.polygon)},
                        {"matrix", numbers(place.vpw)},
                        {"width", place.width},
                        {"height", place.height}};
    if (!place.frontTolerance) return;
    object["screen"]["frontTolerance"] = *place.frontTolerance;
    object["screen"]["frontRadius"] = place.frontRadius;
}

void addPlace(const MapPlace& place, json& object)
{
    object["map"] = vectors(place.polygon);
    if (!place.heights.isWhole()) object["heights"] = range(place.heights);
}

void addPlace(const BoxPlace& place, json& object)
{
    object["box"] = vectors(std::vector{place.low, place.high});
}

void addPlace(const SpherePlace& place, json& object)
{
    object["sphere"] = {{"center", numbers(place.center)}, {"radius", place.radius}};
}

void addPlace(const GrownPlace& place, json& object)
{
    json& grown = object["grown"];
    grown = {{"from", numbers(place.from)}, {"distance", place.distance}};
    if (place.angle) grown["angle"] = *place.angle;
    grown["limit"] = place.limit;
}

json attributesJson(const AttributeRanges& attributes)
{
    json object = json::object();
    if (!attributes.classes.all()) object["classes"] = codes(attributes.classes);
    for (const auto& [key, member] : kAttributeKeys)
        if (!(attributes.*member).isWhole()) object[key] = range(attributes.*member);
    if (attributes.hidden) object["hidden"] = *attributes.hidden;
    return object;
}

json drawnJson(const DrawnPoints& drawn)
{
    json object = json::object();
    if (!drawn.clipPlanes.empty()) object["planes"] = vectors(drawn.clipPlanes);
    if (!drawn.sectionPlanes.empty()) object["sections"] = vectors(drawn.sectionPlanes);
    if (drawn.planesPerSection) object["planesPerSection"] = drawn.planesPerSection;
    if (!drawn.shownClasses.all()) object["classes"] = codes(drawn.shownClasses);
    if (!drawn.segments.empty())
        object["segments"] = list(drawn.segments, [](const ScreenSegment& segment) {
            return json{{"hidesSelected", segment.hidesSelected}, {"polygons", polygons(segment.polygons)}};
        });
    return object;
}

} // namespace

std::string selectionText(const PointSelection& selection)
{
    json object = json::object();
    std::visit([&](const auto& place) { addPlace(place, object); }, selection.place);
    if (selection.outside) object["outside"] = true;
    if (!selection.selected.empty()) object["selected"] = polygons(selection.selected);
    for (const auto& [key, part] : {std::pair("where", attributesJson(selection.attributes)),
                                    std::pair("drawn", drawnJson(selection.drawn))})
        if (!part.empty()) object[key] = part;
    if (selection.undrawnToo) object["undrawnToo"] = true;
    return object.dump();
}

Status readSelection(const std::string& text, PointSelection& selection)
{
    PointSelection read;
    try {
        read = toSelection(json::parse(text));
    } catch (const Malformed& malformed) {
        return Status::failure(malformed.what);
    } catch (const json::parse_error& error) {
        return Status::failure("not JSON from byte " + std::to_string(error.byte) + " on");
    } catch (const json::exception&) {
        return Status::failure("not JSON: a number is too large"); // all that the parser refuses otherwise
    }
    if (const Status status = checkSelection(read); !status) return status;
    selection = std::move(read);
    return {};
}

} // namespace VelOsgDBBrx

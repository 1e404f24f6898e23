#include "viewer/script/RequestReader.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <utility>

using nlohmann::json;
using VelBrx::Status;

namespace script {

namespace {

/// In the quotes and escapes of JSON, so that any text stays on one line.
std::string quoted(const std::string& text)
{
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

Status expected(const std::string& member, const std::string& what)
{
    return Status::failure(quoted(member) + ": expected " + what);
}

std::optional<int> wholeNumber(const json& value)
{
    using Limits = std::numeric_limits<int>;
    if (!value.is_number_integer()) return std::nullopt;
    const auto number = value.get<double>(); // compares right beyond the signed numbers, too
    if (number < Limits::min() || number > Limits::max()) return std::nullopt;
    return value.get<int>();
}

/// An array of numbers as long as `Vec`.
template <class Vec>
std::optional<Vec> vectorOf(const json& value, double largest)
{
    if (!value.is_array() || value.size() != Vec::num_components) return std::nullopt;
    Vec vector;
    for (int i = 0; i < Vec::num_components; ++i) {
        if (!value[i].is_number() || std::abs(value[i].get<double>()) > largest) return std::nullopt;
        vector[i] = value[i].get<double>();
    }
    return vector;
}

std::optional<ClassSet> classesOf(const json& value)
{
    if (!value.is_array()) return std::nullopt;
    ClassSet classes;
    for (const json& item : value) {
        const std::optional<int> code = wholeNumber(item);
        if (!code || *code < 0 || *code > 255) return std::nullopt;
        classes.set(static_cast<size_t>(*code));
    }
    return classes;
}

std::optional<Value> rangeOf(const json& value)
{
    if (!value.is_array() || value.size() != 2) return std::nullopt;
    VelOsgDBBrx::ValueRange range;
    for (const auto& [end, item] : {std::pair(&range.low, &value[0]), std::pair(&range.high, &value[1])}) {
        if (!item->is_number() && !item->is_null()) return std::nullopt;
        if (item->is_number()) *end = item->get<double>();
    }
    return range;
}

/// Of a parameter that is no list of vectors; empty where the value is of another type.
std::optional<Value> valueOf(const Parameter& parameter, const json& value)
{
    switch (parameter.type) {
    case Parameter::FLAG:
        if (value.is_boolean()) return value.get<bool>();
        break;
    case Parameter::WHOLE:
        if (const std::optional<int> number = wholeNumber(value)) return *number;
        break;
    case Parameter::NUMBER:
        if (value.is_number()) return value.get<double>();
        break;
    case Parameter::TEXT:
    case Parameter::CHOICE:
        if (value.is_string()) return value.get<std::string>();
        break;
    case Parameter::PLACE:
        if (const std::optional<osg::Vec2d> place = vectorOf<osg::Vec2d>(value, parameter.high))
            return *place;
        break;
    case Parameter::POSITION:
        if (const std::optional<osg::Vec3d> position = vectorOf<osg::Vec3d>(value, parameter.high))
            return *position;
        break;
    case Parameter::RANGE:
        return rangeOf(value);
    case Parameter::CLASSES:
        if (const std::optional<ClassSet> classes = classesOf(value)) return *classes;
        break;
    default:
        break;
    }
    return std::nullopt;
}

/// A list of vectors; a failure names the item that is wrong.
template <class Vec, class Holder>
Status readList(const Parameter& parameter, const std::string& member, const json& value,
                std::optional<Value>& read)
{
    std::vector<Vec> list;
    for (const json& item : value.is_array() ? value : json::array()) {
        const std::optional<Vec> vector = vectorOf<Vec>(item, parameter.high);
        if (!vector) {
            return expected(member, Parameter::vectorText(Vec::num_components, parameter.high) + " as item " +
                                        std::to_string(list.size() + 1));
        }
        list.push_back(*vector);
    }
    read = Holder(std::move(list));
    return Status();
}

Status readPoints(const std::string& member, const json& value, std::optional<Value>& read)
{
    VelOsgDBBrx::PointSelection selection;
    if (const Status status = VelOsgDBBrx::readSelection(value.dump(), selection); !status)
        return Status::failure(quoted(member) + ": " + status.message());
    read = selection;
    return Status();
}

Status readMember(const Parameter& parameter, const std::string& member, const json& value, Request& request)
{
    std::optional<Value> read;
    Status status;
    if (parameter.type == Parameter::POINTS)
        status = readPoints(member, value, read);
    else if (parameter.type == Parameter::PLANES)
        status = readList<osg::Vec4d, std::vector<osg::Vec4d>>(parameter, member, value, read);
    else if (parameter.type == Parameter::POSITIONS)
        status = readList<osg::Vec3d, std::vector<osg::Vec3d>>(parameter, member, value, read);
    else if (parameter.isOutline() && member != parameter.name)
        status = readList<osg::Vec3d, Outline>(parameter, member, value, read);
    else if (parameter.isOutline())
        status = readList<osg::Vec2d, Outline>(parameter, member, value, read);
    else
        read = valueOf(parameter, value);
    if (!status) return status;
    if (!read || !parameter.takes(*read)) return expected(member, parameter.expectation());
    request.set(parameter.name, std::move(*read));
    return Status();
}

} // namespace

Status readRequest(const json& object, Request& request)
{
    std::set<std::string> known = {"op"};
    for (const Parameter& parameter : request.operation().parameters) {
        if (!request.wants(parameter)) continue;
        const std::string inWorld = parameter.isOutline() ? parameter.worldName() : parameter.name;
        known.insert({parameter.name, inWorld});
        if (inWorld != parameter.name && object.contains(inWorld) && object.contains(parameter.name)) {
            return Status::failure(quoted(parameter.name) + " and " + quoted(inWorld) +
                                   " exclude each other");
        }
        const std::string& member = object.contains(inWorld) ? inWorld : parameter.name;
        const auto value = object.find(member);
        if (value == object.end()) continue;
        if (Status status = readMember(parameter, member, *value, request); !status) return status;
    }
    for (const auto& [name, value] : object.items()) {
        if (known.count(name) == 0)
            return Status::failure(quoted(name) + " is no member of it; see docs/scripting.md");
    }
    return request.check();
}

} // namespace script

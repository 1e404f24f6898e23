#pragma once

#include "viewer/operation/Operation.h"

#include <utility>

/// How the table of operations declares what its parameters take.
namespace parameter {

constexpr double kLargest = 1e12; ///< of a coordinate
constexpr int kClasses = 256;

inline Parameter flag(const char* name)
{
    return {name, Parameter::FLAG};
}

inline Parameter whole(const char* name, const char* unit, int low, int high)
{
    return {name, Parameter::WHOLE, double(low), double(high), unit};
}

/// Above `low`, up to `high`.
inline Parameter number(const char* name, const char* unit, double low, double high)
{
    return {name, Parameter::NUMBER, low, high, unit};
}

inline Parameter text(const char* name)
{
    return {name, Parameter::TEXT};
}

inline Parameter choice(const char* name, std::vector<std::string> choices)
{
    return {name, Parameter::CHOICE, 0, 0, "", std::move(choices)};
}

/// On the map.
inline Parameter place(const char* name)
{
    return {name, Parameter::PLACE, 0, kLargest, "world x and y"};
}

inline Parameter position(const char* name)
{
    return {name, Parameter::POSITION, 0, kLargest, "world coordinates"};
}

inline Parameter positions(const char* name)
{
    return {name, Parameter::POSITIONS, 1, kLargest, "world coordinates"};
}

/// Up to the code `high`.
inline Parameter classes(const char* name, int high)
{
    return {name, Parameter::CLASSES, 0, double(high)};
}

/// No class at all, too.
inline Parameter orEmpty(Parameter parameter)
{
    parameter.canBeEmpty = true;
    return parameter;
}

inline Parameter polygon()
{
    return {"polygon", Parameter::POLYGON, 3, kLargest};
}

/// All numbers where it is not given.
inline Parameter range(const char* name, const char* unit)
{
    Parameter parameter{name, Parameter::RANGE, 0, 0, unit};
    parameter.required = false;
    parameter.without = "all";
    return parameter;
}

/// Points that are given without a polygon.
inline Parameter points()
{
    Parameter parameter{"points", Parameter::POINTS};
    parameter.required = false;
    parameter.without = "`polygon` or `selected`";
    return parameter;
}

inline Parameter orElse(Parameter parameter, Value otherwise)
{
    parameter.required = false;
    parameter.otherwise = std::move(otherwise);
    return parameter;
}

/// With no value of its own where it is not given: `without` says what that means.
inline Parameter orNone(Parameter parameter, const char* without)
{
    parameter.required = false;
    parameter.without = without;
    return parameter;
}

/// Only beside a parameter of this value; `value` is empty where that one must not be given.
inline Parameter where(Parameter parameter, const char* other, std::optional<std::string> value)
{
    parameter.condition = Parameter::Condition{other, std::move(value)};
    return parameter;
}

/// What a key says: one parameter and its value.
inline std::function<void(Request&, const Scene&)> says(const char* name, const Value& value)
{
    return [=](Request& request, const Scene&) { request.set(name, value); };
}

} // namespace parameter

#pragma once

#include "terminal/Text.h"

#include <VelBrx/ClassTable.h>
#include <VelBrx/ProjectionRecords.h>
#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <string>

/// \name What `brx info` prints of stores and of other files alike
/// @{

template <class Value>
void printLine(const char* name, const Value& value)
{
    std::cout << std::left << std::setw(20) << name << value << '\n';
}

/// A line of the three values, each as `text(value, axis)` writes it.
template <class Values, class Text>
void printVector(const char* name, const Values& values, Text text)
{
    std::cout << std::left << std::setw(20) << name;
    for (size_t axis = 0; axis < 3; ++axis)
        std::cout << (axis == 0 ? "" : " ") << text(values[axis], axis);
    std::cout << '\n';
}

/// Bounds, scale and offset of what has `min`, `max`, `scale` and `offset`.
template <class Place>
void printPlace(const Place& place)
{
    const auto inSteps = [&](double value, size_t axis) {
        return coordinate(value + 0.0, place.scale[axis]); // no -0
    };
    printVector("smallest x y z", place.min, inSteps);
    printVector("largest x y z", place.max, inSteps);
    printVector("scale", place.scale, [](double value, size_t) { return shortest(value); });
    printVector("offset", place.offset, inSteps);
}

template <size_t N>
void printHistogram(const char* title, const std::array<uint64_t, N>& counts)
{
    std::cout << title << '\n';
    for (size_t value = 0; value < N; ++value)
        if (counts[value] > 0)
            std::cout << "  " << std::right << std::setw(3) << value << std::setw(16) << counts[value]
                      << '\n';
}

/// With the names of the classes.
void printClasses(const std::array<uint64_t, 256>& counts, const VelBrx::ClassTable& names);

/// Points for each square unit of the bounds.
double density(uint64_t points, double width, double depth);

/// The coordinate system with its code and units, "none", or why it cannot be known.
std::string systemText(const VelBrx::ProjectionRecords& projection);

/// The same for programs; null where there is none that can be known.
nlohmann::ordered_json systemJson(const VelBrx::ProjectionRecords& projection);
/// @}

/// What `brx info` tells of a LAS, LAZ or COPC file; throws a CommandError.
void tellLas(const std::string& path, const VelBrx::ClassTable& names, bool json);

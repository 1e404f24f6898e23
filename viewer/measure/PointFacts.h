#pragma once

#include "viewer/scene/Scene.h"

#include <VelOsgDBBrx/PointPicker.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// All that a store has of a point.
struct PointFacts
{
    osg::Vec3d position; ///< world coordinates, to the last digit
    std::string place;   ///< for people: x, y and z as the store holds them, and their unit

    using Attribute = std::pair<std::string, std::string>; ///< name and value
    std::vector<Attribute> main;                           ///< class, intensity, return, source
    std::vector<Attribute> more; ///< the record's others, then what its source file had
    std::string time;            ///< of GPS, seconds
    std::string cloud;           ///< number and store
    std::string problem;         ///< why what its source had cannot be told

    /// A line of each, a tab between name and value, for the clipboard.
    std::string text() const;

    /// What matters most, in few lines for the picture.
    std::vector<std::string> brief() const;

    /// All of it in one line for the terminal, its parts separated by tabs; texts of files are `printable`.
    std::string line() const;
};

/// Coordinates for people, as the store holds them, with their unit; of previews too; empty for
/// a point of neither.
/// Reads records: milliseconds.
std::string placeOf(const VelOsgDBBrx::PickedPoint& point, const Scene& scene);

/// Empty for a point of none of the clouds. Reads records: milliseconds.
std::optional<PointFacts> factsOf(const VelOsgDBBrx::PickedPoint& point, const Scene& scene);

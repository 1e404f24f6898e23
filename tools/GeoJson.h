#pragma once

#include <VelBrx/StorePart.h>

#include <string>
#include <vector>

/// The polygons of a GeoJSON file, whatever they are nested in: a geometry, a feature, a collection.
/// Positions are taken as they are, as map coordinates. Throws a CommandError that names the file where it
/// cannot be read, is no GeoJSON or has no polygon.
std::vector<VelBrx::MapPolygon> readPolygons(const std::string& path);

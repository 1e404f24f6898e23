#pragma once

#include <proj.h>

#include <cstddef>
#include <memory>
#include <string>

/// What this folder needs of the PROJ library: objects that free themselves, and a context of each thread.
namespace Proj {

struct Destroy
{
    void operator()(PJ* object) const { proj_destroy(object); }
};

/// Empty where PROJ knows no such object.
using Object = std::unique_ptr<PJ, Destroy>;

/// Longest WKT that is read; systems have some thousands of characters.
constexpr size_t kMaxWktSize = 65535;

/// The context of the calling thread: silent, and without access to networks.
PJ_CONTEXT* context();

/// What failed last on this thread, as PROJ tells it; also that its database is missing.
std::string lastError();

/// A coordinate system that WKT from anywhere describes.
Object fromWkt(const std::string& wkt);

/// A coordinate system, datum or other entry of the EPSG's list.
Object fromEpsg(int code, PJ_CATEGORY category = PJ_CATEGORY_CRS);

/// In WKT of this kind; empty where that has no words for it.
std::string wktOf(const PJ* object, PJ_WKT_TYPE type);

} // namespace Proj

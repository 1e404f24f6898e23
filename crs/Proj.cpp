#include "crs/Proj.h"

namespace Proj {

namespace {

/// A context and what it said last.
class Context
{
public:
    Context()
    {
        proj_log_func(_context, &_error, [](void* error, int, const char* text) {
            *static_cast<std::string*>(error) = text ? text : "";
        });
        proj_log_level(_context, PJ_LOG_ERROR);
        proj_context_set_enable_network(_context, 0);
    }
    ~Context() { proj_context_destroy(_context); }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    PJ_CONTEXT* get() const { return _context; }
    const std::string& error() const { return _error; }

private:
    PJ_CONTEXT* const _context = proj_context_create();
    std::string _error;
};

const Context& ofThread()
{
    thread_local const Context context;
    return context;
}

} // namespace

PJ_CONTEXT* context()
{
    return ofThread().get();
}

std::string lastError()
{
    if (!proj_context_get_database_path(context()))
        return "the list of coordinate systems, proj.db, is missing; install the package proj-data";
    return ofThread().error();
}

Object fromWkt(const std::string& wkt)
{
    if (wkt.size() > kMaxWktSize) return nullptr;
    Object object(proj_create_from_wkt(context(), wkt.c_str(), nullptr, nullptr, nullptr));
    return object && proj_is_crs(object.get()) ? std::move(object) : nullptr;
}

Object fromEpsg(int code, PJ_CATEGORY category)
{
    return Object(
        proj_create_from_database(context(), "EPSG", std::to_string(code).c_str(), category, 0, nullptr));
}

std::string wktOf(const PJ* object, PJ_WKT_TYPE type)
{
    const char* const options[] = {"MULTILINE=NO", "ALLOW_ELLIPSOIDAL_HEIGHT_AS_VERTICAL_CRS=YES", nullptr};
    const char* const wkt = proj_as_wkt(context(), object, type, options);
    return wkt ? wkt : "";
}

} // namespace Proj

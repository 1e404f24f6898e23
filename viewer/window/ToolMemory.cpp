#include "viewer/window/ToolMemory.h"

#include "viewer/operation/EditOperations.h"
#include "viewer/operation/Operations.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

namespace {

using Ranges = std::map<std::string, std::vector<double>>;
using VelOsgDBBrx::ValueRange;

constexpr double kOpenEnd = 1e300; ///< a file has no infinity

bool isOfOneSurvey(const Parameter& parameter)
{
    return parameter.name == "height" || parameter.name == "gpsTime";
}

double opened(double end)
{
    return std::abs(end) < kOpenEnd ? end : std::copysign(std::numeric_limits<double>::infinity(), end);
}

void recallLimits(const Settings& settings, const Stage& stage)
{
    Request ranges(*findOperation("where"));
    const auto kept = settings.get<Ranges>("tools.ranges").value_or(Ranges());
    for (const auto& [name, ends] : kept) {
        const Parameter* const parameter = ranges.operation().find(name);
        if (parameter && parameter->type == Parameter::RANGE && ends.size() == 2)
            ranges.set(name, ValueRange{opened(ends[0]), opened(ends[1])});
    }
    ClassSet classes;
    for (const int code : settings.get<std::vector<int>>("tools.classes").value_or(std::vector<int>()))
        if (code >= 0 && code < static_cast<int>(classes.size())) classes.set(static_cast<size_t>(code));
    if (classes.any()) ranges.set("classes", classes);
    if (ranges.check()) carryOut(ranges, stage);

    Request depth(*findOperation("depth"));
    const double tolerance = settings.get<double>("tools.depth").value_or(0);
    depth.set("of", std::string(settings.get<bool>("tools.front").value_or(false) ? "front" : "all"));
    if (tolerance > 0) depth.set("tolerance", tolerance);
    if (depth.check()) carryOut(depth, stage);
}

void keepLimits(const Scene& scene, Settings& settings)
{
    const Request now = rangesOf(scene);
    Ranges ranges;
    for (const Parameter& parameter : now.operation().parameters) {
        if (parameter.type != Parameter::RANGE || isOfOneSurvey(parameter) || !now.has(parameter.name))
            continue;
        const auto& range = now.get<ValueRange>(parameter.name);
        ranges[parameter.name] = {std::max(range.low, -kOpenEnd), std::min(range.high, kOpenEnd)};
    }
    settings.set("tools.ranges", ranges);
    settings.set("tools.classes",
                 now.has("classes") ? listClasses(now.get<ClassSet>("classes")) : std::vector<int>());
    const auto& front = scene.editLimits().front;
    settings.set("tools.front", front.has_value());
    if (front) settings.set("tools.depth", front->tolerance.value_or(0));
}

} // namespace

void recallTools(const Settings& settings, ToolUse& tools, const Stage& stage)
{
    ToolSettings& now = tools.settings();
    const double radius = settings.get<double>("tools.brush.radius").value_or(0);
    if (radius > 0 && radius <= BrushSize::kLargest) now.brush.radius = radius;
    now.brush.isInWorld = settings.get<bool>("tools.brush.isInWorld").value_or(now.brush.isInWorld);
    now.growDistance = std::max(settings.get<double>("tools.grow.distance").value_or(0), 0.0);
    if (const auto angle = settings.get<double>("tools.grow.angle"); angle && *angle >= 0 && *angle <= 90)
        now.growAngle = *angle > 0 ? angle : std::nullopt;
    const int limit = settings.get<int>("tools.grow.limit").value_or(0);
    if (limit > 0) now.growLimit = limit;
    tools.setLast(findTool(settings.get<int>("tools.last").value_or(0)));
    recallLimits(settings, stage);
}

void keepTools(const ToolUse& tools, const Scene& scene, Settings& settings)
{
    const ToolSettings& now = tools.settings();
    settings.set("tools.brush.radius", now.brush.radius);
    settings.set("tools.brush.isInWorld", now.brush.isInWorld);
    settings.set("tools.grow.distance", now.growDistance);
    settings.set("tools.grow.angle", now.growAngle.value_or(0));
    settings.set("tools.grow.limit", now.growLimit);
    if (tools.last()) settings.set("tools.last", tools.last()->key);
    keepLimits(scene, settings);
}

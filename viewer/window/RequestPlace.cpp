#include "viewer/window/RequestPlace.h"

#include "viewer/operation/Operations.h"

namespace {

bool isOutside(const Request& request)
{
    return request.has("side") && request.get<std::string>("side") == "outside";
}

} // namespace

bool RequestPlace::isNeeded(const Request& request)
{
    const Parameter* const outline = request.operation().outline();
    return outline && !request.has("points") && !request.has(outline->name);
}

std::string RequestPlace::add(Request& request) const
{
    const Operation& operation = request.operation();
    const Parameter& outline = *operation.outline();
    const bool takesSelected = operation.find("selected") && !request.has("side");
    Tool* const tool = _tools.tool();
    if (!tool && takesSelected && _session.hasSelection()) {
        request.set("selected", true);
        _session.setSight(_views.main());
        return "";
    }
    if (!tool)
        return "draw a polygon (a) or a rectangle (A) first" +
               std::string(takesSelected ? ", or select points (" + keyOf("select") + ")" : "");
    _session.setSight(_tools.sight());
    if (outline.type == Parameter::POLYGON) tool->close();
    if (outline.type == Parameter::POLYGON && !tool->isClosed() && tool->outline().size() < 3)
        return tool->missing();
    if (!_tools.grow()) {
        request.set(outline.name, Outline(tool->outline()));
        return "";
    }
    if (!operation.find("points")) return "what grows cannot be selected; draw around it";
    VelOsgDBBrx::PointSelection selection;
    selection.place = _tools.grown();
    selection.outside = isOutside(request);
    selection.attributes = _scene.editLimits().attributes;
    request.set("points", selection);
    return "";
}

std::string RequestPlace::addStroke(Request& request, bool& canWait) const
{
    const Outline stroke(_tools.brush()->outline());
    _tools.brush()->drop();
    _session.setSight(_tools.sight());
    canWait = request.operation().find("points") != nullptr;
    if (!canWait) {
        request.set(request.operation().outline()->name, stroke);
        return "";
    }
    VelOsgDBBrx::PointSelection selection;
    if (const std::string problem = _session.find(stroke, isOutside(request), selection); !problem.empty())
        return problem;
    if (isOutside(request)) request.set("side", std::string("inside")); // the selection says it
    request.set("points", selection);
    return "";
}

void RequestPlace::addClasses(Request& request) const
{
    const auto holds = [&](const char* name, Parameter::Type type) {
        const Parameter* parameter = request.operation().find(name);
        return parameter && parameter->type == type;
    };
    if (holds("to", Parameter::WHOLE) && !request.has("to")) request.set("to", _classes.toClass);
    if (holds("from", Parameter::CLASSES) && !request.has("from") && !_classes.fromClasses.all())
        request.set("from", _classes.fromClasses);
}

#include "viewer/operation/MeasureOperations.h"

#include "viewer/operation/ParameterKinds.h"

#include <algorithm>

using namespace parameter;
using VelBrx::Status;

namespace {

MeasureKind kindOf(const Request& request)
{
    const auto& names = namesOfMeasureKinds();
    const auto name = std::find(names.begin(), names.end(), request.get<std::string>("kind"));
    return static_cast<MeasureKind>(name - names.begin());
}

Begun begin(const Request& request, const Stage& stage)
{
    if (stage.measuring) stage.measuring->begin(kindOf(request));
    return {};
}

Begun measure(const Request& request, const Stage& stage)
{
    const Measurement given = measurementOf(request);
    if (stage.measuring) stage.measuring->add(given.kind, given.points);
    return {};
}

Status checkMeasure(const Request& request)
{
    const PointRange range = pointsOf(kindOf(request));
    const size_t count = request.get<std::vector<osg::Vec3d>>("points").size();
    if (count >= range.fewest && count <= range.most) return Status();
    const std::string number = range.fewest == range.most
                                   ? std::to_string(range.fewest)
                                   : std::to_string(range.fewest) + " to " + std::to_string(range.most);
    return Status::failure("\"points\": expected " + number + " for \"" + nameOf(kindOf(request)) + "\"");
}

Begun removeOne(const Request& request, const Stage& stage)
{
    const int number = request.get<int>("number");
    if (stage.measuring && stage.measuring->list().remove(static_cast<unsigned>(number))) return {};
    return {Begun::DONE, "there is no measurement " + std::to_string(number)};
}

Begun clear(const Request&, const Stage& stage)
{
    if (stage.measuring) stage.measuring->list().clear();
    return {};
}

Begun writeCsv(const Request& request, const Stage& stage)
{
    const auto& file = request.get<std::string>("file");
    if (!stage.measuring) return {};
    const Status written = stage.measuring->list().writeCsv(file, request.get<bool>("replace"));
    return {Begun::DONE, written ? file + " was written" : written.message()};
}

Parameter kind()
{
    return choice("kind", namesOfMeasureKinds());
}

} // namespace

Measurement measurementOf(const Request& request)
{
    return {kindOf(request), request.get<std::vector<osg::Vec3d>>("points"), std::nullopt};
}

std::vector<Operation> measureOperations()
{
    constexpr int kMostNumbers = 1000000000;
    std::vector<Operation> table = {
        {"measureBy",
         "measures the points that are clicked",
         {kind()},
         {{osgGA::GUIEventAdapter::KEY_F6, "measure a line / an area / an angle", Key::ALWAYS,
           says("kind", std::string("distance"))},
          {osgGA::GUIEventAdapter::KEY_F7, nullptr, Key::ALWAYS, says("kind", std::string("area"))},
          {osgGA::GUIEventAdapter::KEY_F8, nullptr, Key::ALWAYS, says("kind", std::string("angle"))}},
         begin},
        {"measure", "measures points", {kind(), positions("points")}, {}, measure, checkMeasure},
        {"removeMeasure",
         "takes a measurement off the list",
         {whole("number", "", 1, kMostNumbers)},
         {},
         removeOne},
        {"clearMeasures",
         "takes all measurements off the list",
         {},
         {},
         clear,
         nullptr,
         "Take all measurements off the list?",
         "clear"},
        {"measuresCsv",
         "writes the measurements to a table of comma separated values",
         {text("file"), orElse(flag("replace"), false)},
         {},
         writeCsv}};
    table.front().windowOnly = true; // clicks are made there
    return table;
}

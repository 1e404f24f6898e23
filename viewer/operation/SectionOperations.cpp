#include "viewer/operation/SectionOperations.h"

#include "viewer/operation/ParameterKinds.h"

#include <algorithm>
#include <functional>
#include <tuple>
#include <utility>

using namespace parameter;
using osgGA::GUIEventAdapter;
using VelBrx::Status;

namespace {

constexpr double kWidest = 1e6;
constexpr double kMostExaggerated = 100;
constexpr double kWider = 1.25;
constexpr double kTurnOfAKey = 5; ///< degrees

std::pair<osg::Vec2d, osg::Vec2d> endsOf(const Request& request)
{
    return {request.get<osg::Vec2d>("from"), request.get<osg::Vec2d>("to")};
}

Status checkSection(const Request& request)
{
    const auto [from, to] = endsOf(request);
    return (to - from).length() > 0 ? Status()
                                    : Status::failure("\"to\": expected another place than \"from\"");
}

Begun show(const Request& request, const Stage& stage)
{
    Section section;
    std::tie(section.from, section.to) = endsOf(request);
    section.width = request.has("width") ? request.get<double>("width") : Section::widthFor(section.length());
    section.exaggeration = request.get<double>("exaggeration");
    stage.section->showSection(section);
    return {};
}

/// What is done to the section that is shown.
Begun change(const Stage& stage, const std::function<Section(Section)>& changed)
{
    const std::optional<Section> now = stage.section->section();
    if (!now) return {Begun::DONE, "there is no section"};
    Section section = changed(*now);
    section.width = std::min(section.width, kWidest);
    section.exaggeration = std::clamp(section.exaggeration, 1 / kMostExaggerated, kMostExaggerated);
    stage.section->changeSection(section);
    return {};
}

Begun step(const Request& request, const Stage& stage)
{
    const double widths = request.get<double>("widths");
    return change(stage, [widths](const Section& section) { return section.stepped(widths); });
}

Begun turn(const Request& request, const Stage& stage)
{
    const double degrees = request.get<double>("degrees");
    return change(stage, [degrees](const Section& section) { return section.turned(degrees); });
}

Begun widen(const Request& request, const Stage& stage)
{
    return change(stage, [&request](Section section) {
        section.width = request.has("width") ? request.get<double>("width")
                                             : section.width * request.get<double>("times");
        return section;
    });
}

Begun exaggerate(const Request& request, const Stage& stage)
{
    return change(stage, [&request](Section section) {
        section.exaggeration = request.get<double>("times");
        return section;
    });
}

Begun close(const Request&, const Stage& stage)
{
    stage.section->showSection(std::nullopt);
    return {};
}

Begun draw(const Request&, const Stage& stage)
{
    stage.section->drawSection();
    return {};
}

} // namespace

std::vector<Operation> sectionOperations()
{
    Operation drawing{"drawSection",
                      "lets the ends of a section be clicked",
                      {},
                      {{'S', "section: click its two ends", Key::ALWAYS}},
                      draw};
    drawing.windowOnly = true;
    return {
        {"section",
         "shows a vertical strip from the side",
         {place("from"), place("to"),
          orNone(number("width", "world units", 0, kWidest), "about a twentieth of its length"),
          orElse(number("exaggeration", "", 0, kMostExaggerated), 1.0)},
         {},
         show,
         checkSection},
        drawing,
        {"sectionStep",
         "moves the section by its width, in the direction in which it looks",
         {orElse(number("widths", "", -1000, 1000), 1.0)},
         {{'.', "the section on / back by its width", Key::ALWAYS},
          {',', nullptr, Key::ALWAYS, says("widths", -1.0)}},
         step},
        {"sectionWidth",
         "makes the section wider or narrower",
         {orNone(number("width", "world units", 0, kWidest), "`times` its width"),
          orElse(number("times", "", 0, 1000), kWider)},
         {{'>', "a wider / narrower section", Key::ALWAYS},
          {'<', nullptr, Key::ALWAYS, says("times", 1 / kWider)}},
         widen},
        {"sectionTurn",
         "turns the section about its middle, counter-clockwise from above",
         {number("degrees", "degrees", -360, 360)},
         {{kAlt | GUIEventAdapter::KEY_Up, "turn the section to the left / right", Key::ALWAYS,
           says("degrees", kTurnOfAKey)},
          {kAlt | GUIEventAdapter::KEY_Down, nullptr, Key::ALWAYS, says("degrees", -kTurnOfAKey)}},
         turn},
        {"sectionExaggeration",
         "draws the heights of the section so many times as large",
         {number("times", "", 0, kMostExaggerated)},
         {},
         exaggerate},
        {"sectionClose",
         "closes the section",
         {},
         {{GUIEventAdapter::KEY_F10, "close the section", Key::ALWAYS}},
         close},
    };
}

#include "viewer/measure/PointFacts.h"

#include "terminal/Text.h"
#include "viewer/display/Palettes.h"

#include <VelBrx/SourcePoint.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdio>

namespace {

std::string fixed(double value, int decimals)
{
    char text[512];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string placeText(const osg::Vec3d& position, const OctreeInfo& octree, const Units& units)
{
    std::string text;
    for (int axis = 0; axis < 3; ++axis) {
        text += (axis ? "  " : "") + coordinate(position[axis], octree.scale[axis]);
        const std::string& unit = axis < 2 ? units.level : units.height;
        // Said once where all have the same.
        if (!unit.empty() && (axis == 2 || (axis == 1 && units.level != units.height))) text += " " + unit;
    }
    return text;
}

std::string flagsText(const VelBrx::SourcePoint& source)
{
    std::string text;
    const auto add = [&](bool is, const char* name) {
        if (is) text += (text.empty() ? "" : ", ") + std::string(name);
    };
    add(source.isSynthetic, "synthetic");
    add(source.isKeyPoint, "key-point");
    add(source.isWithheld, "withheld");
    add(source.isOverlap, "overlap");
    return text.empty() ? "none" : text;
}

void addRecord(const VelOsgDBBrx::StoredPoint& stored, PointFacts& facts)
{
    facts.time = fixed(stored.gpsTime, 6) + " s";
    facts.main = {
        {"class", classText(stored.classCode)},
        {"intensity", std::to_string(stored.intensity)},
        {"return", std::to_string(stored.returnNumber) + " of " + std::to_string(stored.numberOfReturns)},
        {"source", std::to_string(stored.pointSource)}};
    std::string color;
    for (const uint16_t channel : stored.color)
        color += (color.empty() ? "" : " ") + std::to_string(channel);
    facts.more = {{"colour", color}, // in front: see `addSource`
                  {"scan angle", fixed(stored.scanAngle, 3) + "°"},
                  {"scan direction", stored.scansForward ? "forward" : "backward"},
                  {"edge of flight line", stored.atEdgeOfLine ? "yes" : "no"},
                  {"scanner channel", std::to_string(stored.scannerChannel)},
                  {"user data", std::to_string(stored.userData)}};
    if (stored.normal) {
        const osg::Vec3f& normal = *stored.normal;
        facts.more.emplace_back("normal", fixed(normal.x(), 3) + " " + fixed(normal.y(), 3) + " " +
                                              fixed(normal.z(), 3));
    }
    facts.more.emplace_back("record", std::to_string(stored.number));
}

/// Of LAS point formats.
bool hasColors(unsigned format)
{
    return format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10;
}

void addSource(const VelBrx::SourcePoint& source, PointFacts& facts)
{
    if (!hasColors(source.pointFormat)) facts.more.front().second = "none";
    facts.more.emplace_back("flags", flagsText(source));
    facts.more.emplace_back("class as built", classText(source.classCode));
    if (source.nearInfrared) facts.more.emplace_back("near infrared", std::to_string(*source.nearInfrared));
    for (const VelBrx::SourcePoint::Field& field : source.extraBytes)
        facts.more.emplace_back(printable(field.name), printable(field.value));
    facts.more.emplace_back("point of file", std::to_string(source.number) + " of " + printable(source.file) +
                                                 ", format " + std::to_string(source.pointFormat));
}

std::string joined(const std::vector<PointFacts::Attribute>& attributes, const char* separator)
{
    std::string text;
    for (const auto& [name, value] : attributes)
        text += (text.empty() ? "" : separator) + printable(name + " " + value);
    return text;
}

} // namespace

std::string PointFacts::text() const
{
    std::string lines = "position\t" + place + "\nGPS time\t" + time + "\n";
    for (const auto* const list : {&main, &more})
        for (const auto& [name, value] : *list)
            lines += name + "\t" + value + "\n";
    return lines + "cloud\t" + cloud + "\n";
}

std::vector<std::string> PointFacts::brief() const
{
    std::vector<std::string> lines = {place, "GPS time " + time, joined(main, ", "), "cloud " + cloud};
    if (!problem.empty()) lines.push_back(problem);
    return lines;
}

std::string PointFacts::line() const
{
    return place + "\tGPS time " + time + "\t" + joined(main, ", ") + "\t" + joined(more, "\t") + "\tcloud " +
           printable(cloud) + (problem.empty() ? "" : "\t" + printable(problem));
}

std::string placeOf(const VelOsgDBBrx::PickedPoint& point, const Scene& scene)
{
    for (const auto* const list : {&scene.clouds(), &scene.previews()})
        for (const Scene::Cloud& cloud : *list) {
            if (cloud.id != point.cloudId) continue;
            const auto stored = VelOsgDBBrx::storedPoint(point, cloud.octree());
            return stored ? placeText(stored->position, cloud.octree(), Units(cloud.system)) : std::string();
        }
    return {};
}

std::optional<PointFacts> factsOf(const VelOsgDBBrx::PickedPoint& point, const Scene& scene)
{
    const Scene::Cloud* const cloud = scene.findCloud(point.cloudId);
    if (!cloud) return std::nullopt;
    OctreeInfo& octree = cloud->octree();
    const auto stored = VelOsgDBBrx::storedPoint(point, octree);
    if (!stored) return std::nullopt;
    PointFacts facts;
    facts.position = stored->position;
    facts.place = placeText(stored->position, octree, Units(cloud->system));
    facts.cloud = std::to_string(point.cloudId) + ", " + cloud->store;
    addRecord(*stored, facts);
    if (cloud->system) facts.more.emplace_back("coordinate system", printable(Units(cloud->system).system));
    VelBrx::SourcePoint source;
    const VelBrx::Status read =
        VelBrx::readSourcePoint(cloud->store, *octree.pointFile, stored->number, source);
    if (read)
        addSource(source, facts);
    else
        facts.problem = printable(read.message());
    return facts;
}

#include "viewer/operation/LookOperations.h"

#include "viewer/display/Palettes.h"
#include "viewer/operation/ParameterKinds.h"

#include <algorithm>
#include <type_traits>

using namespace parameter;
using VelBrx::Status;

namespace {

Begun lookFrom(const Request& request, const Stage& stage)
{
    CameraView view;
    if (request.has("view")) {
        view = *namedView(request.get<std::string>("view"));
    } else {
        view.kind = CameraView::LOOK;
        view.look = {request.get<osg::Vec3d>("eye"), request.get<osg::Vec3d>("center"),
                     request.get<osg::Vec3d>("up")};
    }
    const auto& projection = request.get<std::string>("projection");
    std::optional<Lens> lens;
    if (projection != "kept") lens = Lens{projection == "orthographic"};
    if (request.has("height")) lens->height = request.get<double>("height");
    stage.look(view, lens);
    return {};
}

/// A key looks from another side; how the picture projects stays.
std::function<void(Request&, const Scene&)> looksFrom(const char* view)
{
    return [=](Request& request, const Scene&) {
        request.set("view", std::string(view));
        request.set("projection", std::string("kept"));
    };
}

Status checkCamera(const Request& request)
{
    if (request.has("view")) return Status();
    const auto& eye = request.get<osg::Vec3d>("eye");
    const osg::Vec3d ahead = request.get<osg::Vec3d>("center") - eye;
    if ((ahead ^ request.get<osg::Vec3d>("up")).length2() > 0) return Status();
    return Status::failure("\"up\": expected a direction other than that from eye to center");
}

Begun colour(const Request& request, const Stage& stage)
{
    const ColorMode mode = *namedColorMode(request.get<std::string>("mode"));
    ChangedBy by = ChangedBy::ENTRY;
    if (mode == ColorMode::CHANGED) by = *namedChangedBy(request.get<std::string>("by"));
    stage.scene.setColorMode(mode, by);
    return {Begun::DONE, stage.scene.remark()};
}

Begun span(const Request& request, const Stage& stage)
{
    const std::optional<ColorMode> mode = stage.scene.gradientMode();
    if (!mode) return {Begun::DONE, "the colours have no range: choose elevation, intensity or time first"};
    std::optional<ColorSpan> span;
    if (request.has("low")) span = ColorSpan{request.get<double>("low"), request.get<double>("high")};
    stage.scene.setColorSpan(*mode, span);
    return {};
}

Status checkSpan(const Request& request)
{
    if (request.has("low") != request.has("high"))
        return Status::failure("\"low\" and \"high\": expected both, or neither for the points' own range");
    if (request.has("low") && request.get<double>("low") >= request.get<double>("high"))
        return Status::failure("\"low\": expected a number below \"high\"");
    return Status();
}

Begun choosePalette(const Request& request, const Stage& stage)
{
    stage.scene.setPalette(request.get<std::string>("palette"));
    return {};
}

Begun expose(const Request& request, const Stage& stage)
{
    stage.scene.setExposure({request.get<double>("brightness"), request.get<double>("contrast")});
    return {};
}

Begun colourBackground(const Request& request, const Stage& stage)
{
    Scene::Drawing drawing = stage.scene.drawing();
    drawing.background = *colorOf(request.get<std::string>("color"));
    stage.scene.setDrawing(drawing);
    return {};
}

Status checkBackground(const Request& request)
{
    return colorOf(request.get<std::string>("color")) ? Status()
                                                      : Status::failure("\"color\": expected #rrggbb");
}

Begun limitPoints(const Request& request, const Stage& stage)
{
    Scene::Drawing drawing = stage.scene.drawing();
    drawing.budget = static_cast<uint64_t>(request.get<int>("points"));
    stage.scene.setDrawing(drawing);
    return {};
}

constexpr double kMegabyte = 1e6;

Begun limitMemory(const Request& request, const Stage& stage)
{
    Scene::Drawing drawing = stage.scene.drawing();
    drawing.memory.reset();
    if (request.has("megabytes"))
        drawing.memory = static_cast<uint64_t>(request.get<double>("megabytes") * kMegabyte);
    stage.scene.setDrawing(drawing);
    return {};
}

Begun keepUp(const Request& request, const Stage& stage)
{
    Scene::Drawing drawing = stage.scene.drawing();
    drawing.framesPerSecond = request.get<int>("perSecond");
    stage.scene.setDrawing(drawing);
    return {};
}

Begun lightEyeDome(const Request& request, const Stage& stage)
{
    stage.scene.setEyeDomeLighting(request.get<bool>("on"));
    EyeDomeShading shading = stage.scene.shading();
    if (request.has("strength")) shading.strength = request.get<double>("strength");
    if (request.has("radius")) shading.radius = request.get<double>("radius");
    stage.scene.setShading(shading);
    return {};
}

void eyeDomeOtherwise(Request& request, const Scene& scene)
{
    request.set("on", !scene.eyeDomeLighting());
}

template <bool more>
void eyeDomeStrength(Request& request, const Scene& scene)
{
    constexpr double kStep = 1.25;
    const double strength = scene.shading().strength;
    request.set("on", scene.eyeDomeLighting());
    request.set("strength", std::min(more ? strength * kStep : strength / kStep, kStrongestEdl));
}

/// In the order in which the key goes through them.
constexpr std::pair<const char*, NormalLight::Source> kLights[] = {
    {"eye", NormalLight::EYE}, {"sun", NormalLight::SUN}, {"none", NormalLight::NONE}};

Begun light(const Request& request, const Stage& stage)
{
    const auto& from = request.get<std::string>("from");
    NormalLight light = stage.scene.light();
    for (const auto& [name, source] : kLights)
        if (from == name) light.source = source;
    if (light.source == NormalLight::SUN) {
        light.azimuth = request.get<double>("azimuth");
        light.height = request.get<double>("height");
    }
    stage.scene.setLight(light);
    return {};
}

void nextLight(Request& request, const Scene& scene)
{
    const NormalLight& now = scene.light();
    size_t place = 0;
    while (kLights[place].second != now.source)
        ++place;
    const auto& [name, source] = kLights[(place + 1) % std::size(kLights)];
    request.set("from", std::string(name));
    if (source != NormalLight::SUN) return;
    request.set("azimuth", now.azimuth);
    request.set("height", now.height);
}

Begun drawSurface(const Request& request, const Stage& stage)
{
    SurfaceLook surface = stage.scene.surface();
    surface.on = request.get<bool>("on");
    const auto take = [&](const char* name, auto& value) {
        if (request.has(name)) value = request.get<std::decay_t<decltype(value)>>(name);
    };
    take("classes", surface.classes);
    take("contours", surface.contours);
    take("interval", surface.interval);
    take("azimuth", surface.azimuth);
    take("height", surface.height);
    take("points", surface.points);
    take("byElevation", surface.byElevation);
    stage.scene.setSurface(surface);
    return {};
}

void surfaceOtherwise(Request& request, const Scene& scene)
{
    request.set("on", !scene.surface().on);
}

Begun sizePoints(const Request& request, const Stage& stage)
{
    stage.scene.setPointSize(request.get<int>("pixels"));
    return {};
}

template <int step>
void otherPointSize(Request& request, const Scene& scene)
{
    request.set("pixels", std::clamp(scene.pointSize() + step, 1, kLargestPointSize));
}

/// In the order of `PointSizing::bySpacing`.
const std::vector<std::string> kSizings = {"fixed", "spacing"};

Begun sizeBy(const Request& request, const Stage& stage)
{
    PointSizing sizing = stage.scene.pointSizing();
    sizing.bySpacing = request.get<std::string>("by") == kSizings[1];
    if (request.has("factor")) sizing.factor = request.get<double>("factor");
    stage.scene.setPointSizing(sizing);
    return {};
}

void otherSizing(Request& request, const Scene& scene)
{
    request.set("by", kSizings[!scene.pointSizing().bySpacing]);
}

Begun showClasses(const Request& request, const Stage& stage)
{
    stage.scene.setShownClasses(request.has("classes") ? request.get<ClassSet>("classes") : ClassSet().set());
    return {};
}

Begun clip(const Request& request, const Stage& stage)
{
    stage.scene.setClipPlanes(request.has("planes") ? request.get<std::vector<osg::Vec4d>>("planes")
                                                    : std::vector<osg::Vec4d>());
    return {};
}

Begun clipBox(const Request& request, const Stage& stage)
{
    std::optional<osg::BoundingBoxd> box;
    if (request.has("low")) box.emplace(request.get<osg::Vec3d>("low"), request.get<osg::Vec3d>("high"));
    stage.scene.setClipBox(box);
    return {};
}

Status checkBox(const Request& request)
{
    if (request.has("low") != request.has("high"))
        return Status::failure("a box needs both \"low\" and \"high\"; with neither there is none");
    if (!request.has("low")) return Status();
    const auto& low = request.get<osg::Vec3d>("low");
    const auto& high = request.get<osg::Vec3d>("high");
    for (int axis = 0; axis < 3; ++axis)
        if (!(low[axis] < high[axis]))
            return Status::failure("\"high\": expected more than \"low\" on each axis");
    return Status();
}

Status checkPlanes(const Request& request)
{
    if (!request.has("planes")) return Status();
    for (const osg::Vec4d& plane : request.get<std::vector<osg::Vec4d>>("planes")) {
        if (osg::Vec3d(plane.x(), plane.y(), plane.z()).length2() == 0)
            return Status::failure("\"planes\": a plane needs a normal: a, b and c are all 0");
    }
    return Status();
}

std::vector<std::string> namesOfModes()
{
    std::vector<std::string> names;
    for (const ColorModeChoice& mode : colorModeChoices())
        names.push_back(mode.name);
    return names;
}

/// The mode of edits, the last of the table; where it is on, by the next of what it can tell.
void nextChanged(Request& request, const Scene& scene)
{
    const auto& names = changedByNames();
    const size_t next =
        scene.colorMode() == ColorMode::CHANGED ? static_cast<size_t>(scene.changedBy()) + 1 : 0;
    request.set("mode", std::string(colorModeChoices().back().name));
    request.set("by", names[next % names.size()]);
}

std::vector<Key> keysOfModes()
{
    std::vector<Key> keys;
    for (const ColorModeChoice& mode : colorModeChoices())
        keys.push_back({mode.key, mode.description, Key::ALWAYS, says("mode", std::string(mode.name))});
    keys.back().say = nextChanged;
    return keys;
}

} // namespace

std::vector<Operation> lookOperations()
{
    const NormalLight sun;
    return {
        {"window",
         "sets the size of the window and of the pictures",
         {whole("width", "pixels", 1, kLargestPicture), whole("height", "pixels", 1, kLargestPicture)}},
        {"camera",
         "looks from another place",
         {orNone(choice("view", namesOfViews()), "`eye`, `center` and `up`"),
          where(position("eye"), "view", std::nullopt), where(position("center"), "view", std::nullopt),
          where(position("up"), "view", std::nullopt),
          orElse(choice("projection", {"perspective", "orthographic", "kept"}), std::string("perspective")),
          where(orNone(number("height", "world units", 0, 1e9), "all is in the picture"), "projection",
                "orthographic")},
         {{'T', "look down / north / obliquely", Key::ALWAYS, looksFrom("top")},
          {'N', nullptr, Key::ALWAYS, looksFrom("north")},
          {'I', nullptr, Key::ALWAYS, looksFrom("iso")},
          {'O', "look at everything, stray points too", Key::ALWAYS, looksFrom("all")}},
         lookFrom,
         checkCamera},
        {"mode",
         "colours the points",
         {choice("mode", namesOfModes()),
          where(orElse(choice("by", changedByNames()), changedByNames().front()), "mode", "changed")},
         keysOfModes(),
         colour},
        {"range",
         "sets what the colours of elevation, intensity or time span",
         {orNone(number("low", "units of the value", -kLargest, kLargest), "that of nearly all points"),
          orNone(number("high", "units of the value", -kLargest, kLargest), "that of nearly all points")},
         {},
         span,
         checkSpan},
        {"palette",
         "chooses the colours of elevation, intensity and time",
         {choice("palette", paletteNames())},
         {},
         choosePalette},
        {"exposure",
         "makes the colours lighter or darker, and stronger or weaker; not those of intensity",
         {orElse(number("brightness", "", -1, 1), 0.0), orElse(number("contrast", "", 0, 4), 1.0)},
         {},
         expose},
        {"background",
         "colours what is behind the points",
         {text("color")},
         {},
         colourBackground,
         checkBackground},
        {"budget",
         "limits how many points are drawn",
         {whole("points", "points", 1000, 2000000000)},
         {},
         limitPoints},
        {"memory",
         "limits what the points drawn take in memory, and at most again on the graphics card",
         {orNone(number("megabytes", "MB", kLeastMemory / kMegabyte, kLargestMemory / kMegabyte),
                 "no limit but that of `budget`")},
         {},
         limitMemory},
        {"frameRate",
         "sets how many pictures a second moving about is to have; fewer points are drawn for it meanwhile",
         {whole("perSecond", "pictures a second", 5, 120)},
         {},
         keepUp},
        {"edl",
         "switches eye-dome lighting",
         {flag("on"), orNone(number("strength", "", 0, kStrongestEdl), "stays"),
          orNone(number("radius", "pixels", 0, kWidestEdl), "stays")},
         {{'d', "eye-dome lighting on / off", Key::ALWAYS, eyeDomeOtherwise},
          {'[', "weaker / stronger eye-dome lighting", Key::ALWAYS, eyeDomeStrength<false>},
          {']', nullptr, Key::ALWAYS, eyeDomeStrength<true>}},
         lightEyeDome},
        {"light",
         "lights stores that have normals",
         {choice("from", {"eye", "sun", "none"}),
          where(orElse(number("azimuth", "degrees clockwise from north", -360, 360), sun.azimuth), "from",
                "sun"),
          where(orElse(number("height", "degrees above the horizon", 0, 90), sun.height), "from", "sun")},
         {{'B', "light on normals: eye / sun / off", Key::ALWAYS, nextLight}},
         light},
        {"surface",
         "draws the points of some classes as a shaded surface with contour lines",
         {flag("on"), orNone(classes("classes", kClasses - 1), "stays"), orNone(flag("contours"), "stays"),
          orNone(number("interval", "world units", 0, kLargestInterval), "stays"),
          orNone(number("azimuth", "degrees clockwise from north", -360, 360), "stays"),
          orNone(number("height", "degrees above the horizon", 0, 90), "stays"),
          orNone(flag("points"), "stays"), orNone(flag("byElevation"), "stays")},
         {{'s', "shaded surface of the ground on / off", Key::ALWAYS, surfaceOtherwise}},
         drawSurface},
        {"pointSize",
         "sets the size of points",
         {whole("pixels", "pixels", 1, kLargestPointSize)},
         {{'+', "larger / smaller points", Key::ALWAYS, otherPointSize<1>},
          {'-', nullptr, Key::ALWAYS, otherPointSize<-1>}},
         sizePoints},
        {"pointSizing",
         "draws points at their size, or where they stand wider apart as large as the space between them: "
         "surfaces close",
         {choice("by", kSizings),
          where(orNone(number("factor", "of the space", 0, kLargestSizeFactor), "stays"), "by", kSizings[1])},
         {{'P', "close gaps between points, on / off", Key::ALWAYS, otherSizing}},
         sizeBy},
        {"showClasses",
         "shows points of some classes only",
         {orNone(orEmpty(classes("classes", kClasses - 1)), "all classes")},
         {{'V', "visible classes: which classes are shown", Key::EDITING, nullptr, "classes to show",
           "classes"}},
         showClasses},
        {"clip",
         "shows and edits only what is inside planes",
         {orNone({"planes", Parameter::PLANES, 0, kLargest}, "no plane")},
         {},
         clip,
         checkPlanes},
        {"clipBox",
         "shows and edits only what is inside a box",
         {orNone(position("low"), "no box"), orNone(position("high"), "no box")},
         {},
         clipBox,
         checkBox},
    };
}

// Every tool in the program's own window, worked by mouse and keys. Which points it must reach is worked out
// here, from the records, the camera and what is drawn.

#include "tests/support/BuildStore.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/LasRecords.h"
#include "tests/support/ProgramWindow.h"
#include "tests/support/TestSurvey.h"
#include "viewer/camera/Pose.h"
#include "viewer/camera/SectionFrame.h"
#include "viewer/window/Views.h"

#include <gtest/gtest.h>

#include <osgDB/WriteFile>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <optional>
#include <thread>
#include <tuple>

namespace {

using Classes = std::vector<unsigned>;

/// How far inside a shape a pixel is, negative outside.
using Depth = std::function<double(const osg::Vec2d& pixel)>;

constexpr double kCurve = 1.5; ///< pixels that the edge of what is no polygon may be off

double toSegment(const osg::Vec2d& place, const osg::Vec2d& a, const osg::Vec2d& b)
{
    const osg::Vec2d way = b - a;
    const double share = way.length2() > 0 ? ((place - a) * way) / way.length2() : 0;
    return (place - a - way * std::clamp(share, 0.0, 1.0)).length();
}

/// A polygon means the pixels whose middle is inside.
Depth inPolygon(Polygon polygon)
{
    return [polygon = std::move(polygon)](const osg::Vec2d& pixel) {
        const bool inside = contains(polygon, std::trunc(pixel.x()) + 0.5, std::trunc(pixel.y()) + 0.5);
        return inside ? 2 * kCurve : -2 * kCurve;
    };
}

/// Within a distance of a way.
Depth near(const Polygon& way, double radius)
{
    return [=](const osg::Vec2d& pixel) {
        double distance = (pixel - way.front()).length();
        for (size_t i = 1; i < way.size(); ++i)
            distance = std::min(distance, toSegment(pixel, way[i - 1], way[i]));
        return radius - distance;
    };
}

/// Threading model, width and height of the window. 24 x 24 points on a slope, the eastern half 3 m higher,
/// with the classes 2 to 4 by column.
class ToolsWindow : public testing::TestWithParam<std::tuple<const char*, int, int>>
{
protected:
    ToolsWindow()
    {
        survey.side = 24;
        survey.slope = 0.25;
        survey.step = 3;
        survey.classes = 3;
        EXPECT_TRUE(survey.write(folder.file("grid.las")));
        buildStoreOf(folder.file("grid.las"), store);
        EXPECT_TRUE(scene.load({store}, Options()));
        before = read();
    }

    void TearDown() override
    {
        const char* const kept = std::getenv("VELBRX_KEPT_PICTURES");
        if (!kept || !window) return;
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        std::string name = info->name();
        std::replace(name.begin(), name.end(), '/', '-');
        osgDB::writeImageFile(*window->picture(), std::string(kept) + "/tools-" + name + ".png");
    }

    /// Opens the window, in a view by name, in perspective.
    void open(const std::string& view)
    {
        window.emplace(std::vector<std::string>{BRXVIEW, std::string("--") + std::get<0>(GetParam()),
                                                "--no-panel", "--no-legend", "--view", view, "--mode",
                                                "class", "--point-size", "5", "--window", "0", "0",
                                                std::to_string(width), std::to_string(height), store},
                       folder.path().string(), width, height);
        const CameraView wanted = *namedView(view);
        const Look look = lookAt(wanted, scene.boundsFor(wanted), 1.0 * width / height);
        const osg::ref_ptr<osg::Viewport> port = new osg::Viewport(0, 0, width, height);
        toWindow = osg::Matrixd::lookAt(look.eye, look.center, look.up) *
                   projectionOf(Lens(), port->aspectRatio()) * port->computeWindowMatrix();
        window->stillPicture();
    }

    /// Pixels of the window, y down.
    osg::Vec2d pixelOf(const osg::Vec3d& world) const
    {
        const osg::Vec3d pixel = world * toWindow;
        return osg::Vec2d(pixel.x(), height - pixel.y());
    }

    /// A place by parts of the window, from its top left.
    osg::Vec2d at(double x, double y) const
    {
        return osg::Vec2d(std::floor(x * width), std::floor(y * height));
    }

    void click(const osg::Vec2d& place, int button = 1)
    {
        window->click(static_cast<int>(place.x()), height - 1 - static_cast<int>(place.y()), button);
    }

    void drag(const Polygon& way)
    {
        std::vector<std::pair<int, int>> places;
        for (const osg::Vec2d& place : way)
            places.emplace_back(static_cast<int>(place.x()), height - 1 - static_cast<int>(place.y()));
        window->drag(places);
    }

    void press(const std::string& keys)
    {
        for (const char key : keys)
            window->press(std::string(1, key));
    }

    /// Clicks the corners.
    void draw(const std::string& tool, const Polygon& corners)
    {
        window->press(tool);
        for (const osg::Vec2d& corner : corners)
            click(corner);
    }

    Classes read() const
    {
        const LasRecords records(store);
        Classes classes;
        for (size_t i = 0; i < records.size(); ++i)
            classes.push_back(records.classOf(i));
        return classes;
    }

    bool isUnsaved() const { return window->title().rfind("* ", 0) == 0; }

    /// Saves what an edit did; the edit may still be running.
    void save()
    {
        EXPECT_TRUE(eventually([&] { return isUnsaved(); })) << "edited";
        EXPECT_TRUE(eventually([&] {
            press("W");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            return !isUnsaved();
        })) << "saved";
    }

    /// Gives what is drawn a class, after counting it, and compares the file's points with those that `depth`
    /// and `also` mean.
    void expectReached(unsigned code, const Depth& depth,
                       const std::function<bool(const osg::Vec3d&)>& also = nullptr)
    {
        press(std::to_string(code));
        press("D");
        window->stillPicture();
        EXPECT_FALSE(isUnsaved()) << "counted only";
        press("K");
        expectSaved(code, depth, also);
    }

    /// Likewise, of an edit that was made.
    void expectSaved(unsigned code, const Depth& depth,
                     const std::function<bool(const osg::Vec3d&)>& also = nullptr)
    {
        save();
        const LasRecords records(store);
        size_t reached = 0;
        size_t unclear = 0;
        std::vector<std::string> wrong;
        for (size_t i = 0; i < records.size(); ++i) {
            const osg::Vec3d world = records.position(i);
            const double inside = depth(pixelOf(world));
            const bool isMeant = inside > 0 && (!also || also(world));
            const bool isReached = records.classOf(i) == code;
            unclear += std::abs(inside) < kCurve;
            reached += isReached;
            const unsigned left = isReached ? code : before[i];
            if ((isReached != isMeant && std::abs(inside) >= kCurve) || records.classOf(i) != left)
                wrong.push_back(std::to_string(world.x()) + " " + std::to_string(world.y()));
        }
        EXPECT_EQ(wrong, std::vector<std::string>()) << "class " << code;
        EXPECT_GT(reached, 3u) << "class " << code;
        EXPECT_LT(unclear, records.size() / 20);
        before = read();
    }

    const int width = std::get<1>(GetParam());
    const int height = std::get<2>(GetParam());
    const TempFolder folder;
    const std::string store = folder.file("grid.brx");
    TestSurvey survey;
    Scene scene;
    osg::Matrixd toWindow; ///< of the picture that is drawn on; y up
    Classes before;        ///< of the store's records, as of the last edit
    std::optional<ProgramWindow> window;
};

class SectionToolsWindow : public ToolsWindow
{
};

std::string parameterText(const testing::TestParamInfo<std::tuple<const char*, int, int>>& info)
{
    return std::get<0>(info.param) + std::to_string(std::get<1>(info.param));
}

} // namespace

TEST_P(ToolsWindow, ReachesThePointsUnderWhatIsDrawn)
{
    open("iso");
    press("E");
    const Polygon triangle = {at(0.3, 0.35), at(0.62, 0.3), at(0.5, 0.7)};
    draw("a", triangle);
    click(at(0.9, 0.9), 3); // closes it where it is
    click(at(0.1, 0.9));    // no corner any more
    expectReached(20, inPolygon(triangle));
    draw("A", {at(0.55, 0.4), at(0.75, 0.6)});
    expectReached(21, inPolygon({at(0.55, 0.4), at(0.75, 0.4), at(0.75, 0.6), at(0.55, 0.6)}));

    // Escape puts the tool away and nothing else; Enter takes it again.
    draw("a", {at(0.2, 0.2), at(0.8, 0.2)});
    window->press("Escape");
    window->press("Return");
    const Polygon quad = {at(0.4, 0.3), at(0.6, 0.45), at(0.5, 0.6), at(0.3, 0.45)};
    for (const osg::Vec2d& corner : quad)
        click(corner);
    click(at(0.7, 0.9));
    window->press("BackSpace");
    expectReached(22, inPolygon(quad));

    const Polygon loop = {at(0.35, 0.5), at(0.5, 0.45), at(0.65, 0.5), at(0.55, 0.65), at(0.4, 0.62)};
    window->press("t");
    drag(loop);
    expectReached(23, [&, inside = inPolygon(loop), edge = near(loop, 0)](const osg::Vec2d& pixel) {
        const double toEdge = std::min(-edge(pixel), toSegment(pixel, loop.back(), loop.front()));
        return inside(pixel) > 0 ? toEdge : -toEdge;
    });
    window->press("C");
    drag({at(0.5, 0.5), at(0.6, 0.5)});
    expectReached(24, near({at(0.5, 0.5)}, at(0.6, 0.5).x() - at(0.5, 0.5).x()));

    // Corners of lines are clicked out of order; what is beside their ends stays.
    draw("semicolon", {at(0.6, 0.5), at(0.4, 0.4), at(0.5, 0.55)});
    expectReached(25, inPolygon({at(0.4, 0.4), at(0.5, 0.55), at(0.6, 0.5), at(0.6, 0), at(0.4, 0)}));
    draw("apostrophe", {at(0.4, 0.6), at(0.65, 0.5)});
    expectReached(26, inPolygon({at(0.4, 0.6), at(0.65, 0.5), at(0.65, 1), at(0.4, 1)}));
    draw("slash", {at(0.3, 0.4), at(0.6, 0.35)});
    click(at(0.5, 0.8), 3);
    for (const osg::Vec2d& corner : {at(0.4, 0.6), at(0.7, 0.55)})
        click(corner);
    const osg::Vec2d first = at(0.3, 0.4), second = at(0.6, 0.35), third = at(0.4, 0.6), last = at(0.7, 0.55);
    const auto on = [](const osg::Vec2d& a, const osg::Vec2d& b, double x) {
        return osg::Vec2d(x, a.y() + (b.y() - a.y()) * (x - a.x()) / (b.x() - a.x()));
    };
    expectReached(27, inPolygon({on(first, second, third.x()), second, on(third, last, second.x()), third}));
}

TEST_P(ToolsWindow, PaintsGrowsAndTakesBack)
{
    open("iso");
    press("E28b");
    const Classes clean = before;
    window->turnWheel(width / 2, height / 2, 4);
    const double radius = 20 * std::pow(1.15, 4);
    const Polygon stroke = {at(0.35, 0.5), at(0.5, 0.4), at(0.62, 0.55)};
    drag(stroke);
    expectSaved(28, near(stroke, radius));
    const Classes painted = before;
    press("29");
    window->turnWheel(width / 2, height / 2, -8);
    const double smaller = radius / std::pow(1.15, 8);
    drag({at(0.4, 0.45), at(0.6, 0.45)});
    expectSaved(29, near({at(0.4, 0.45), at(0.6, 0.45)}, smaller));
    for (const Classes& wanted : {painted, clean}) {
        press("z");
        save();
        EXPECT_EQ(read(), wanted);
    }
    before = clean;
    window->press("Escape");

    // From a point of the lower half over what hangs together with it.
    const double edge = survey.x + survey.side / 2.0 - 0.5;
    const osg::Vec3d seed(survey.x + 3, survey.y + 5, survey.z + survey.heightOf(3));
    press("Y");
    click(pixelOf(seed));
    window->stillPicture();
    expectReached(
        30, [](const osg::Vec2d&) { return 2 * kCurve; },
        [&](const osg::Vec3d& world) { return world.x() < edge; });
}

TEST_P(SectionToolsWindow, ReachesTheStripAlone)
{
    open("top");
    const auto pointAt = [&](int column, int row) {
        return osg::Vec3d(survey.x + column, survey.y + row, survey.z + survey.heightOf(column));
    };
    Section section;
    section.from.set(pointAt(2, 6).x(), pointAt(2, 6).y());
    section.to.set(pointAt(21, 10).x(), pointAt(21, 10).y());
    section.width = Section::widthFor(section.length());
    press("S");
    for (const auto& end : {pointAt(2, 6), pointAt(21, 10)}) {
        click(pixelOf(end));
        window->stillPicture();
    }
    const int rows = static_cast<int>((height - Views::kDivider) * 0.4);
    SectionFrame frame =
        SectionFrame::whole(section, scene, 1.0 * width / ((height - Views::kDivider) * 0.4));
    const osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setViewport(0, 0, width, rows);
    const auto place = [&] {
        frame.place(*camera);
        toWindow = camera->getViewMatrix() * camera->getProjectionMatrix() *
                   camera->getViewport()->computeWindowMatrix();
    };
    place();
    const auto inStrip = [&](const osg::Vec3d& world) {
        const osg::Vec2d away = osg::Vec2d(world.x(), world.y()) - section.from;
        return std::abs(away * section.ahead()) <= section.width / 2;
    };
    const double top = height - rows;
    const auto in = [&](double x, double y) {
        return osg::Vec2d(std::floor(x * width), std::floor(top + y * rows));
    };

    for (int i = 0; i < 9; ++i) {
        window->press("greater");
        section.width *= 1.25;
    }
    frame.setSection(section);
    place();
    press("E");
    draw("semicolon", {in(0.25, 0.55), in(0.75, 0.45)});
    expectReached(40,
                  inPolygon({in(0.25, 0.55), in(0.75, 0.45), {in(0.75, 0).x(), top}, {in(0.25, 0).x(), top}}),
                  inStrip);

    // A double click brings a place into the middle.
    window->press("Escape");
    window->moveTo(3, height - 3);
    const osg::Vec2d clicked = in(0.4, 0.6);
    click(clicked);
    click(clicked);
    window->stillPicture();
    const osg::Vec2d inPicture(2 * clicked.x() / width - 1, 1 - 2 * (clicked.y() - top) / rows);
    const double aspect = 1.0 * width / rows;
    frame = frame.moved(frame.at(inPicture, aspect) - frame.middle());
    place();
    const Polygon box = {in(0.4, 0.2), in(0.8, 0.2), in(0.8, 0.9), in(0.4, 0.9)};
    draw("A", {box[0], box[2]});
    expectReached(41, inPolygon(box), inStrip);

    // What is selected in it is of the strip, also for edits in the main picture.
    draw("a", box);
    press("q");
    window->stillPicture();
    expectReached(42, inPolygon(box), inStrip);
    draw("a", {in(0.4, 0.2), in(0.6, 0.2), in(0.6, 0.9), in(0.4, 0.9)});
    press("Q");
    window->stillPicture();
    const Polygon right = {in(0.6, 0.2), in(0.8, 0.2), in(0.8, 0.9), in(0.6, 0.9)};
    expectReached(43, inPolygon(right), inStrip);

    // Of the next strip.
    press(".");
    section = section.stepped(1);
    frame.setSection(section);
    place();
    draw("a", box);
    press("q");
    window->stillPicture();
    expectReached(44, inPolygon(box), inStrip);

    // A line in it makes the strip stand out on the map, and nothing beside it.
    const double low = 14.5, high = 17.5; // along the section, right of what is selected
    const auto onGround = [&](double along) {
        const double x = (section.from + section.along() * along).x() - survey.x;
        return pixelOf(frame.worldAt({along, survey.z + survey.slope * x + survey.step}));
    };
    draw("a", {onGround(low), onGround(high)});
    press("j");
    window->moveTo(3, height - 3);
    const osg::ref_ptr<osg::Image> picture = window->stillPicture();
    const osg::ref_ptr<osg::Viewport> upper =
        new osg::Viewport(0, rows + Views::kDivider, width, height - rows - Views::kDivider);
    const Look look = lookAt(*namedView("top"), scene.boundsFor(*namedView("top")), 1.0 * width / height);
    toWindow = osg::Matrixd::lookAt(look.eye, look.center, look.up) *
               projectionOf(Lens(), upper->aspectRatio()) * upper->computeWindowMatrix();
    const LasRecords records(store);
    size_t marked = 0;
    for (size_t i = 0; i < records.size(); ++i) {
        const osg::Vec2d at = pixelOf(records.position(i));
        const osg::Vec3ub color =
            pixel(*picture, static_cast<int>(at.x()), height - 1 - static_cast<int>(at.y()));
        if (color != osg::Vec3ub(255, 255, 0)) continue;
        ++marked;
        EXPECT_TRUE(inStrip(records.position(i)));
        EXPECT_LT(std::abs(frame.of(records.position(i)).x() - (low + high) / 2), (high - low) / 2 + 1);
    }
    EXPECT_GT(marked, 3u);
}

INSTANTIATE_TEST_SUITE_P(Sizes, ToolsWindow,
                         testing::Values(std::tuple("SingleThreaded", 1100, 760),
                                         std::tuple("DrawThreadPerContext", 720, 540)),
                         parameterText);
INSTANTIATE_TEST_SUITE_P(Models, SectionToolsWindow,
                         testing::Values(std::tuple("SingleThreaded", 1100, 760),
                                         std::tuple("CullDrawThreadPerContext", 720, 540),
                                         std::tuple("DrawThreadPerContext", 720, 540),
                                         std::tuple("CullThreadPerCameraDrawThreadPerContext", 720, 540)),
                         parameterText);

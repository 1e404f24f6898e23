#include "edit/SelectionTest.h"
#include "tests/render/PointPicture.h"
#include "tests/support/LasRecords.h"

#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/SelectSegmentStack.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/BufferIndexBinding>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

using VelOsgDBBrx::PointCloudHelper;
using VelOsgDBBrx::SelectSegmentStack;

namespace {

constexpr int kSize = PointPicture::kSize;
const osg::Vec3ub kSelected(255, 0, 157);
const osg::Vec3ub kPlain(0, 255, 0);
const Polygon kLeft = {{-5, -5}, {12.25, -5}, {12.25, 40}, {-5, 40}};
const Polygon kLower = {{-5, -5}, {40, -5}, {40, 7.75}, {-5, 7.75}};

/// One point somewhere in each pixel of the picture, so that the pixel shows what became of the point.
std::vector<TestPoint> pointInEachPixel()
{
    std::mt19937 random(5);
    std::uniform_int_distribution<int32_t> within(100, 900);
    std::vector<TestPoint> points;
    for (int i = 0; i < kSize * kSize; ++i) {
        const int32_t x = i % kSize * 1000 + within(random);
        points.push_back(placed(coloredPoint(0, 255, 0), x, i / kSize * 1000 + within(random)));
    }
    return points;
}

struct SelectSegmentStackTest : testing::Test
{
    std::vector<TestPoint> points = pointInEachPixel();
    PointPicture picture{PointPicture::AsGiven{points}};
    SelectSegmentStack stack{picture.viewer.viewer, picture.cloud};

    osg::Vec3d local(int i) const { return osg::Vec3d(points[i].x, points[i].y, points[i].z) * 0.001; }

    osg::Vec3ub pixelOf(int i) { return picture.at(i % kSize, i / kSize); }

    void push(Polygon polygon, bool inside = true) { stack.selectPushAndApply(polygon, inside); }
    void pushSegment(Polygon polygon, bool flag = true) { stack.segmentPushAndApply(polygon, flag); }

    /// Draws, and counts the points shown in a colour.
    int count(const osg::Vec3ub& color)
    {
        picture.draw();
        int found = 0;
        for (int i = 0; i < kSize * kSize; ++i)
            found += pixelOf(i) == color;
        return found;
    }

    /// The points that an edit reaches with what the stack gives it, where the cloud stands now.
    std::vector<uint8_t> reached(const VelOsgDBBrx::PointSelection& selection) const
    {
        const osg::ref_ptr<OctreeInfo> octree = new OctreeInfo;
        octree->scale.set(0.001, 0.001, 0.001);
        const SelectionAreas areas(selection);
        const SelectionTest test(areas, *octree, picture.cloud->getWorldMatrices().front(),
                                 SelectionTest::Hidden::ANY);
        std::vector<uint8_t> found(points.size() + PointTest::kBlock);
        for (size_t i = 0; i < points.size(); i += PointTest::kBlock) {
            uint8_t records[PointTest::kBlock * VelBrx::PointRecord::kPointSize];
            const size_t count = std::min<size_t>(PointTest::kBlock, points.size() - i);
            for (size_t k = 0; k < count; ++k)
                points[i + k].pack(records + k * VelBrx::PointRecord::kPointSize);
            const uint8_t classes[PointTest::kBlock] = {};
            test.test(records, static_cast<int>(count), classes, &found[i]);
        }
        return found;
    }

    /// Draws, and expects each pixel to be as the processor says of its point, and edits to reach what it
    /// says. Returns how many pixels differ from a cloud without selection.
    int expectAgreement()
    {
        picture.draw();
        VelOsgDBBrx::PointSelection drawn;
        drawn.drawn.segments = stack.getSegments();
        VelOsgDBBrx::PointSelection chosen;
        chosen.selected = stack.getSelection();
        const std::vector<uint8_t> isDrawn = reached(drawn);
        const std::vector<uint8_t> isChosen = reached(chosen);
        int changed = 0;
        for (int i = 0; i < kSize * kSize; ++i) {
            osg::Vec3d p = local(i);
            const osg::Vec3ub expected = !stack.pointIsVisible(p) ? PointPicture::kBackground
                                         : stack.pointIsSelect(p) ? kSelected
                                                                  : kPlain;
            EXPECT_EQ(pixelOf(i), expected) << "point " << i;
            EXPECT_EQ(isDrawn[i] != 0, stack.pointIsVisible(p)) << "point " << i;
            EXPECT_EQ(isChosen[i] != 0, stack.pointIsSelect(p) || !stack.hasSelection()) << "point " << i;
            changed += expected != kPlain;
        }
        return changed;
    }
};

} // namespace

TEST_F(SelectSegmentStackTest, SelectionStaysOnTheDataOfATurnedCloudWhileTheCameraMoves)
{
    const osg::Matrixd place = picture.root->getMatrix();
    picture.root->setMatrix(osg::Matrixd::rotate(0.7, osg::Vec3d(1, 2, 3)) * place *
                            osg::Matrixd::translate(3, -2, 5));
    picture.lookInPerspective();
    picture.viewer.camera().setViewport(4, 2, 24, 20); // off the window's centre
    push({{5, 3}, {20, 6}, {9, 21}, {26.5, 18.5}});
    stack.selectConvertSegment(true);
    push({{10, 4}, {27, 4}, {18, 20}});

    picture.root->setMatrix(place);
    picture.viewer.camera().setViewport(0, 0, kSize, kSize);
    picture.viewer.camera().setViewMatrix(osg::Matrixd::translate(-PointPicture::kOrigin));
    picture.viewer.camera().setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -1000, 1000);
    EXPECT_GT(expectAgreement(), 100);
    stack.selectConvertSegment(false);
    EXPECT_GT(expectAgreement(), 500);
}

TEST_F(SelectSegmentStackTest, SelectsUnderThePolygonInAReversedWindow)
{
    osg::Camera& camera = picture.viewer.camera();
    const osg::Matrixd projection = camera.getProjectionMatrix();
    camera.setProjectionMatrix(projection * osg::Matrixd::scale(-1, 1, 1));
    push(kLeft);
    camera.setProjectionMatrix(projection);
    expectAgreement();
    for (int i = 0; i < kSize * kSize; ++i)
        EXPECT_EQ(pixelOf(i) == kSelected, local(i).x() > kSize - kLeft[1].x()) << "point " << i;
}

TEST_F(SelectSegmentStackTest, LeavesPointsBehindTheCameraAlone)
{
    const osg::Vec3d middle = PointPicture::kOrigin + osg::Vec3d(kSize / 2, kSize / 2, 0);
    picture.viewer.camera().setViewMatrixAsLookAt(middle, middle + osg::Vec3d(1, 0, 0.001),
                                                  osg::Vec3d(0, 0, 1));
    picture.viewer.camera().setProjectionMatrixAsPerspective(90, 1, 0.1, 100);
    push({{-1e4, -1e4}, {1e4, -1e4}, {1e4, 1e4}, {-1e4, 1e4}});

    picture.viewer.camera().setViewMatrix(osg::Matrixd::translate(-PointPicture::kOrigin));
    picture.viewer.camera().setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -1000, 1000);
    expectAgreement();
    for (int i = 0; i < kSize * kSize; ++i)
        EXPECT_EQ(pixelOf(i) == kSelected, i % kSize >= kSize / 2) << "point " << i;
}

TEST_F(SelectSegmentStackTest, TakesPolygonsOfThousandsOfVerticesAndOfTooFew)
{
    push({});
    push({{3, 3}});
    push({{3, 3}, {30, 30}});
    EXPECT_EQ(expectAgreement(), 0);
    Polygon circle;
    for (int i = 0; i < 4000; ++i)
        circle.emplace_back(16 + 10 * std::cos(i * M_PI / 2000), 16 + 10 * std::sin(i * M_PI / 2000));
    push(circle);
    EXPECT_NEAR(expectAgreement(), 314, 20);
}

TEST_F(SelectSegmentStackTest, BrightnessLeavesTheColourOfTheSelectionAloneExceptForTimes)
{
    push(kLeft);
    const int selected = count(kSelected);
    const osg::Vec3ub grey(128, 128, 128);
    PointCloudHelper::setBrightnessContrast(picture.root, 0, 0);
    EXPECT_EQ(count(kSelected), selected);
    EXPECT_EQ(count(grey), kSize * kSize - selected);
    VelOsgDBBrx::ColorScale white;
    white.addColorScaleElement(-1, osg::Vec4f(1, 1, 1, 1));
    white.addColorScaleElement(1, osg::Vec4f(1, 1, 1, 1));
    VelOsgDBBrx::ShaderHelper::gpsTimeColorShader(picture.cloud, white);
    EXPECT_EQ(count(grey), kSize * kSize);
}

namespace {

/// The stack as it is stated, for polygons drawn on a cloud that is seen from above, a pixel a metre.
struct StatedStack
{
    struct Entry
    {
        bool inside;
        Polygon polygon;
    };
    struct Segment
    {
        bool cullInside;
        std::vector<Entry> entries;
    };
    enum Kind
    {
        SEGMENT,
        SELECT,
        CONVERT
    };

    void push(const Polygon& polygon, bool inside)
    {
        selection.push_back({inside, polygon});
        history.push_back(SELECT);
    }
    void pushSegment(const Polygon& polygon, bool flag)
    {
        segments.push_back({flag, {{flag, polygon}}});
        history.push_back(SEGMENT);
    }
    void convert(bool cullInside)
    {
        segments.push_back({cullInside, selection});
        selection.clear();
        history.push_back(CONVERT);
    }
    void popSelection()
    {
        if (!selection.empty()) selection.pop_back();
    }
    void popSegment()
    {
        if (!segments.empty()) segments.pop_back();
    }
    void popConversion()
    {
        if (segments.empty()) return;
        selection = segments.back().entries;
        segments.pop_back();
    }
    void pop()
    {
        if (history.empty()) return;
        const Kind last = history.back();
        history.pop_back();
        if (last == SEGMENT) popSegment();
        if (last == SELECT) popSelection();
        if (last == CONVERT) popConversion();
    }

    static bool selects(const std::vector<Entry>& entries, const osg::Vec3d& p)
    {
        bool selected = false;
        for (const Entry& entry : entries)
            if (contains(entry.polygon, p.x(), p.y())) selected = entry.inside;
        return selected;
    }
    bool shows(const osg::Vec3d& p) const
    {
        return std::none_of(segments.begin(), segments.end(), [&p](const Segment& segment) {
            return selects(segment.entries, p) == segment.cullInside;
        });
    }

    std::vector<Entry> selection;
    std::vector<Segment> segments;
    std::vector<Kind> history;
};

} // namespace

TEST_F(SelectSegmentStackTest, DoesWhatIsStatedInEveryOrderOfPushesPopsClearsAndConversions)
{
    std::mt19937 random(2);
    const auto number = [&random](int below) {
        return static_cast<int>(random() % static_cast<unsigned>(below));
    };
    StatedStack stated;
    Polygon polygon;
    bool flag = false;
    struct Operation
    {
        const char* name;
        int share; ///< of the steps
        std::function<void()> run;
        std::function<void()> runStated;
    };
    const Operation operations[] = {
        {"select push", 5, [&] { push(polygon, flag); }, [&] { stated.push(polygon, flag); }},
        {"segment push", 4, [&] { pushSegment(polygon, flag); }, [&] { stated.pushSegment(polygon, flag); }},
        {"convert", 2, [&] { stack.selectConvertSegment(flag); }, [&] { stated.convert(flag); }},
        {"select pop", 1, [&] { stack.selectPopAndApply(); }, [&] { stated.popSelection(); }},
        {"segment pop", 1, [&] { stack.segmentPopAndApply(); }, [&] { stated.popSegment(); }},
        {"convert pop", 3, [&] { stack.selectConvertPopAndApply(); }, [&] { stated.popConversion(); }},
        {"select clear", 1, [&] { stack.selectClearAndApply(); }, [&] { stated.selection.clear(); }},
        {"segment clear", 1, [&] { stack.segmentClearAndApply(); }, [&] { stated.segments.clear(); }},
        {"clear", 2, [&] { stack.clearAndApply(); }, [&] { stated = StatedStack(); }},
        {"pop", 9, [&] { stack.pop(); }, [&] { stated.pop(); }},
    };
    std::vector<const Operation*> lots;
    for (const Operation& operation : operations)
        lots.insert(lots.end(), static_cast<size_t>(operation.share), &operation);

    for (int step = 0; step < 3000; ++step) {
        const double x = number(kSize - 4), y = number(kSize - 4);
        const double right = x + 3 + number(8), top = y + 3 + number(8);
        polygon = {{x, y}, {right, y}, {right, top}, {x, top}};
        flag = number(8) != 0; // false hides the most, and with it what others do
        const Operation& operation = *lots[random() % lots.size()];
        operation.run();
        operation.runStated();

        const bool draws = step % 20 == 0;
        if (draws) picture.draw();
        for (int i = 0; i < kSize * kSize; ++i) {
            osg::Vec3d p = local(i);
            const bool selected = StatedStack::selects(stated.selection, p);
            const bool shown = stated.shows(p);
            ASSERT_EQ(stack.pointIsSelect(p), selected) << "step " << step << ", " << operation.name;
            ASSERT_EQ(stack.pointIsVisible(p), shown) << "step " << step << ", " << operation.name;
            if (!draws) continue;
            ASSERT_EQ(pixelOf(i), !shown     ? PointPicture::kBackground
                                  : selected ? kSelected
                                             : kPlain)
                << "step " << step << ", " << operation.name;
        }
    }
}

TEST_F(SelectSegmentStackTest, ClearingLeavesNoSelectionNoSegmentAndNoBuffers)
{
    push(kLeft);
    pushSegment(kLower);
    stack.clearAndApply();
    EXPECT_EQ(count(kPlain), kSize * kSize);
    osg::StateSet& state = *picture.cloud->getStateSet();
    bool active = true;
    ASSERT_TRUE(state.getUniform("activeClip")->get(active));
    EXPECT_FALSE(active);
    for (unsigned int binding = 0; binding < 5; ++binding)
        EXPECT_FALSE(state.getAttribute(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING, binding));
    stack.pop();
    EXPECT_EQ(count(kPlain), kSize * kSize);
}

TEST_F(SelectSegmentStackTest, KeepsCloudsOfOneSceneApart)
{
    CellFixture other({placed(coloredPoint(0, 255, 0), 5500, 5500, 500)}, PointPicture::kOrigin);
    const osg::ref_ptr<PointCloudImpl> second = makeCloud(other);
    picture.root->addChild(second);
    osgViewer::View& view = *picture.viewer.viewer;
    SelectSegmentStack secondStack(view, second);
    Polygon left = kLeft;
    secondStack.selectPushAndApply(left, true);
    picture.draw();
    EXPECT_EQ(picture.at(5, 5), kSelected);
    EXPECT_EQ(count(kSelected), 1) << "the first cloud is not selected";
    push(kLower);
    secondStack.clearAndApply();
    EXPECT_GT(count(kSelected), 7 * kSize) << "the first cloud keeps its own";
}

TEST(SelectSegmentStack, DoesNothingWithoutViewerOrNode)
{
    Polygon polygon = kLeft;
    osg::Vec3d p(1, 1, 0);
    for (const osg::ref_ptr<osg::Node>& node :
         {osg::ref_ptr<osg::Node>(), osg::ref_ptr<osg::Node>(new osg::Group)}) {
        SelectSegmentStack stack(nullptr, node);
        stack.selectPushAndApply(polygon, true);
        stack.segmentPushAndApply(polygon, true);
        stack.selectConvertSegment(true);
        stack.pop();
        stack.clearAndApply();
        EXPECT_FALSE(stack.pointIsSelect(p));
        EXPECT_TRUE(stack.pointIsVisible(p));
    }
}

#include "render/PointDefaults.h"
#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/PointPicker.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/FrameBufferObject>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/RenderInfo>
#include <osg/Texture2D>
#include <osgUtil/CullVisitor>
#include <osgViewer/Viewer>

using VelOsgDBBrx::PickAttachments;
using VelOsgDBBrx::PickedPoint;
using VelOsgDBBrx::PointCloudHelper;
using VelOsgDBBrx::PointPicker;
using VelOsgDBBrx::ShaderHelper;
using VelOsgDBBrx::StoredPoint;
using VelOsgDBBrx::storedPoint;

namespace {

constexpr uint64_t kCloudId = 0xFEDCBA9876543210u;

/// Points a few pixels apart, each at a place of its own inside its pixel.
std::vector<TestPoint> scatteredPoints()
{
    std::vector<TestPoint> points;
    for (int i = 0; i < 6; ++i) {
        TestPoint point = coloredPoint(255, 255, 255);
        point.x = i * 5000 + 123 + i * 101;
        point.y = 7000 + i * 3000 + 877 - i * 77;
        point.z = -5000 + i * 2345;
        point.gpsTime = 1000.5 + i;
        points.push_back(point);
    }
    return points;
}

osg::Vec3d coordinates(const TestPoint& point)
{
    return PointPicture::kOrigin + osg::Vec3d(point.x, point.y, point.z) * 0.001;
}

int column(const TestPoint& point)
{
    return point.x / 1000;
}

int row(const TestPoint& point)
{
    return point.y / 1000;
}

struct PickScene : PointPicture
{
    explicit PickScene(const std::vector<TestPoint>& points) : PointPicture(AsGiven{points})
    {
        picker = new PointPicker(scene, 3);
        scene->addChild(root);
        scene->addChild(picker);
        viewer.viewer->setSceneData(scene);
        PointCloudHelper::setPointCloudId(cloud, kCloudId);
        fixture.octree->root = fixture.wholeCell();
    }

    /// What the picker answers after the next frame.
    std::optional<PickedPoint> pick(double x, double y)
    {
        std::optional<PickedPoint> point;
        EXPECT_TRUE(picker->request(viewer.camera(), x, y));
        EXPECT_FALSE(picker->takeAnswer(point)) << "no frame yet";
        viewer.frame();
        EXPECT_TRUE(picker->takeAnswer(point));
        std::optional<PickedPoint> again;
        EXPECT_FALSE(picker->takeAnswer(again)) << "answered once";
        return point;
    }

    osg::ref_ptr<osg::Group> scene = new osg::Group;
    osg::ref_ptr<PointPicker> picker;
};

} // namespace

TEST(PointPicker, FindsEachPointToItsStoredMillimetreFromEverySide)
{
    const std::vector<TestPoint> points = scatteredPoints();
    const PointView fromAbove = {
        osg::Matrixd::translate(PointPicture::kOrigin), osg::Matrixd::translate(-PointPicture::kOrigin),
        osg::Matrixd::ortho(0, PointPicture::kSize, 0, PointPicture::kSize, -1000, 1000)};
    for (const PointView& view : {fromAbove, PointView::oblique(true), PointView::oblique(false)}) {
        for (const bool eyeDome : {false, true}) {
            PickScene scene(points);
            scene.look(view);
            ShaderHelper::switchEDLShader(scene.scene, eyeDome);
            size_t found = 0;
            for (const TestPoint& point : points) {
                const std::optional<osg::Vec2i> pixel = view.pixelOf(point);
                if (!pixel) continue;
                const std::optional<PickedPoint> picked = scene.pick(pixel->x() + 0.5, pixel->y() + 0.5);
                ASSERT_TRUE(picked);
                EXPECT_LT((picked->position - view.world(point)).length(), 1e-5);
                const std::optional<StoredPoint> stored = storedPoint(*picked, *scene.fixture.octree);
                ASSERT_TRUE(stored);
                EXPECT_LT((stored->position - coordinates(point)).length(), 1e-8);
                EXPECT_EQ(picked->gpsTime, point.gpsTime);
                EXPECT_EQ(picked->cloudId, kCloudId);
                EXPECT_EQ(osg::Vec2i(picked->x, picked->y), *pixel);
                ++found;
            }
            EXPECT_GE(found, 4u);
        }
    }
}

TEST(PointPicker, PrefersThePointNearestToThePlaceAndSeesNoneBeyondItsRadius)
{
    std::vector<TestPoint> points(2, coloredPoint(255, 255, 255));
    points[0].x = 10500;
    points[1].x = 15500;
    points[0].y = points[1].y = 10500;
    PickScene scene(points);
    EXPECT_EQ(scene.pick(12, 10)->x, 10);
    EXPECT_EQ(scene.pick(13, 10)->x, 15);
    EXPECT_EQ(scene.pick(10, 13)->x, 10);
    EXPECT_FALSE(scene.pick(10, 14));
    EXPECT_FALSE(scene.pick(6, 10));
    EXPECT_FALSE(scene.pick(25, 25));
    EXPECT_EQ(scene.pick(7, 7)->x, 10) << "the corner of the window";
}

TEST(PointPicker, SeesWhatTheHostShowsAndNothingElse)
{
    std::vector<TestPoint> points(3, coloredPoint(255, 255, 255));
    for (TestPoint& point : points) {
        point.x = 10500;
        point.y = 10500;
    }
    points[0].z = 3000;
    points[0].flags = 4; // culled
    points[1].z = 1000;
    points[1].gpsTime = 42;
    PickScene scene(points);
    EXPECT_EQ(scene.pick(10, 10)->gpsTime, 42) << "the highest that is not hidden";

    const osg::ref_ptr<osg::Geode> sheet = new osg::Geode;
    sheet->addDrawable(
        osg::createTexturedQuadGeometry(osg::Vec3(0, 0, 2), osg::Vec3(32, 0, 0), osg::Vec3(0, 32, 0)));
    scene.root->addChild(sheet);
    EXPECT_FALSE(scene.pick(10, 10)) << "behind a mesh of the host";
}

TEST(PointPicker, AnswersTheLatestRequestOnly)
{
    PickScene scene(scatteredPoints());
    const std::vector<TestPoint> points = scatteredPoints();
    scene.picker->request(scene.viewer.camera(), column(points[0]), row(points[0]));
    const std::optional<PickedPoint> picked = scene.pick(column(points[1]), row(points[1]));
    ASSERT_TRUE(picked);
    EXPECT_EQ(picked->gpsTime, points[1].gpsTime);

    osg::ref_ptr<osg::Camera> withoutViewport = new osg::Camera;
    EXPECT_FALSE(scene.picker->request(*withoutViewport, 0, 0));
    const osg::ref_ptr<osg::Camera> elsewhere = new osg::Camera(scene.viewer.camera());
    EXPECT_TRUE(scene.picker->request(*elsewhere, 0, 0));
    scene.viewer.frame();
    std::optional<PickedPoint> point;
    EXPECT_FALSE(scene.picker->takeAnswer(point)) << "a camera that does not draw";
}

/// A click is of concern to several: each has a stage of its own, drawn one after the other.
TEST(PointPicker, SeveralAnswerInOneFrame)
{
    PickScene scene(scatteredPoints());
    const std::vector<TestPoint> points = scatteredPoints();
    std::vector<osg::ref_ptr<PointPicker>> pickers = {scene.picker};
    for (const int radius : {0, 9, 5})
        scene.scene->addChild(pickers.emplace_back(new PointPicker(scene.scene, radius)));
    for (size_t frame = 0; frame < 2; ++frame) {
        for (size_t i = 0; i < pickers.size(); ++i)
            pickers[i]->request(scene.viewer.camera(), column(points[i + frame]), row(points[i + frame]));
        scene.viewer.frame();
        for (size_t i = 0; i < pickers.size(); ++i) {
            std::optional<PickedPoint> point;
            ASSERT_TRUE(pickers[i]->takeAnswer(point) && point) << i;
            EXPECT_EQ(point->gpsTime, points[i + frame].gpsTime) << i;
        }
    }
}

/// Asks for a pick while the answer to another is drawn.
struct AskAgain : osg::Camera::DrawCallback
{
    AskAgain(PickScene& picks, const TestPoint& asked) : scene(picks), point(asked) {}

    void operator()(osg::RenderInfo&) const override
    {
        if (!done) scene.picker->request(scene.viewer.camera(), column(point), row(point));
        done = true;
    }

    PickScene& scene;
    const TestPoint point;
    mutable bool done = false;
};

TEST(PointPicker, GivesNoAnswerThatANewerRequestMadeStale)
{
    const std::vector<TestPoint> points = scatteredPoints();
    PickScene scene(points);
    scene.picker->request(scene.viewer.camera(), column(points[0]), row(points[0]));
    const osg::ref_ptr<AskAgain> ask = new AskAgain(scene, points[1]);
    scene.picker->getChild(0)->asCamera()->setPreDrawCallback(ask);
    scene.viewer.frame();
    ASSERT_TRUE(ask->done);
    std::optional<PickedPoint> picked;
    EXPECT_FALSE(scene.picker->takeAnswer(picked));
    scene.viewer.frame();
    EXPECT_TRUE(scene.picker->takeAnswer(picked));
    ASSERT_TRUE(picked);
    EXPECT_EQ(picked->gpsTime, points[1].gpsTime);
}

namespace {

/// A point in the coordinates of its cloud's vertices.
osg::Vec3d local(const TestPoint& point, const CellFixture& fixture)
{
    return osg::componentMultiply(osg::Vec3d(point.x, point.y, point.z), fixture.octree->scale);
}

/// What a pick shows of a point of a store, whose vertices are floats.
PickedPoint seen(const TestPoint& point, const CellFixture& fixture)
{
    PickedPoint picked;
    picked.position = osg::Vec3d(osg::Vec3f(local(point, fixture))) * fixture.octree->transform;
    picked.gpsTime = static_cast<float>(point.gpsTime);
    return picked;
}

} // namespace

TEST(StoredPoint, HasTheWholeRecordAlsoWhereFloatsDoNot)
{
    std::vector<TestPoint> points(50);
    for (size_t i = 0; i < points.size(); ++i) {
        points[i].x = 20000000 + static_cast<int32_t>(i); // 20 km off, where floats are 2 mm apart
        points[i].y = -20000000 + static_cast<int32_t>(7 * i);
        points[i].z = 10000000 - static_cast<int32_t>(3 * i);
        points[i].gpsTime = 366192474.125 + 40.0 * static_cast<double>(i); // their floats are 32 s apart
    }
    TestPoint& wanted = points[20];
    wanted.intensity = 65535;
    wanted.returnNumber = 3;
    wanted.numberOfReturns = 15;
    wanted.classCode = 255;
    wanted.sourceId = 65534;
    wanted.red = 1;
    wanted.green = 2;
    wanted.blue = 65535;
    const CellFixture fixture(points, PointPicture::kOrigin, osg::Vec3d(0.001, 0.002, 0.0005));
    fixture.octree->root = fixture.wholeCell();
    for (int axis = 0; axis < 3; ++axis)
        fixture.octree->root->record.size[axis] = 82000;
    fixture.octree->transform = osg::Matrixd::rotate(1, osg::Z_AXIS) * osg::Matrixd::translate(7, 8, 9);
    const std::optional<StoredPoint> stored = storedPoint(seen(wanted, fixture), *fixture.octree);
    ASSERT_TRUE(stored);
    EXPECT_LT((stored->position - PointPicture::kOrigin - local(wanted, fixture)).length(), 1e-8);
    EXPECT_EQ(stored->gpsTime, wanted.gpsTime);
    EXPECT_EQ(stored->intensity, wanted.intensity);
    EXPECT_EQ(stored->returnNumber, 3);
    EXPECT_EQ(stored->numberOfReturns, 15);
    EXPECT_EQ(stored->classCode, 255);
    EXPECT_EQ(stored->pointSource, wanted.sourceId);
    EXPECT_EQ(stored->color, (std::array<uint16_t, 3>{1, 2, 65535}));
    EXPECT_FALSE(stored->hidden);
}

TEST(StoredPoint, IsTheOneThatWasSeenOfSeveralAtOnePlace)
{
    std::vector<TestPoint> points(4);
    points[0].gpsTime = 1;
    points[1].gpsTime = 2;
    points[1].flags = 4;
    points[2].gpsTime = points[3].gpsTime = 2;
    points[2].classCode = 2;
    points[3].x = 1;
    const CellFixture fixture(points);
    fixture.octree->root = fixture.wholeCell();
    EXPECT_EQ(storedPoint(seen(points[2], fixture), *fixture.octree)->classCode, 2);
    EXPECT_EQ(storedPoint(seen(points[0], fixture), *fixture.octree)->gpsTime, 1);
    PickedPoint otherTime = seen(points[0], fixture);
    otherTime.gpsTime = 77;
    EXPECT_TRUE(storedPoint(otherTime, *fixture.octree));
    TestPoint beside;
    beside.y = 1;
    EXPECT_FALSE(storedPoint(seen(beside, fixture), *fixture.octree));
    fixture.octree->root = nullptr;
    EXPECT_FALSE(storedPoint(seen(points[0], fixture), *fixture.octree));
}

namespace {

/// Reads picks from the camera that it is the post-draw callback of.
class ReadAllPixels : public osg::Camera::DrawCallback
{
public:
    explicit ReadAllPixels(PickAttachments* attachments) : _attachments(attachments) {}

    void operator()(osg::RenderInfo& renderInfo) const override
    {
        picks.clear();
        for (int y = 0; y < PointPicture::kSize; ++y)
            for (int x = 0; x < PointPicture::kSize; ++x)
                if (const auto point = _attachments->read(*renderInfo.getState(), x, y, 0))
                    picks.push_back(*point);
    }

    mutable std::vector<PickedPoint> picks;

private:
    osg::ref_ptr<PickAttachments> _attachments;
};

/// A picture's programs leave out what picks read back, and none that may have targets for it does.
TEST(PointPicker, ProgramsWriteTheColorAloneWhereACameraHasNoOtherTarget)
{
    const auto writesColorAlone = [](osg::Camera& camera, osg::StateAttribute* above = nullptr) {
        PointDefaults defaults;
        const osg::ref_ptr<osgUtil::CullVisitor> cull = new osgUtil::CullVisitor;
        const osg::ref_ptr<osgUtil::RenderStage> stage = new osgUtil::RenderStage;
        const osg::ref_ptr<osgUtil::StateGraph> graph = new osgUtil::StateGraph;
        const osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
        if (above) state->setAttribute(above);
        stage->setCamera(&camera);
        cull->setRenderStage(stage);
        cull->setStateGraph(graph);
        cull->pushStateSet(state);
        return defaults.missingFrom(*cull, nullptr, {})->getDefinePair("COLOR_ALONE") != nullptr;
    };
    osgViewer::Viewer viewer;
    osg::Camera& window = *viewer.getCamera();
    EXPECT_TRUE(writesColorAlone(window));
    EXPECT_FALSE(writesColorAlone(window, new osg::FrameBufferObject));
    const osg::ref_ptr<osg::Camera> nested = new osg::Camera;
    EXPECT_FALSE(writesColorAlone(*nested)) << "draws where the camera above it does";
    nested->attach(osg::Camera::DEPTH_BUFFER, new osg::Texture2D);
    EXPECT_FALSE(writesColorAlone(*nested));
    nested->attach(osg::Camera::COLOR_BUFFER, new osg::Texture2D);
    EXPECT_TRUE(writesColorAlone(*nested));
    nested->attach(osg::Camera::COLOR_BUFFER4, new osg::Texture2D);
    EXPECT_FALSE(writesColorAlone(*nested));
    window.setPreDrawCallback(new osg::Camera::DrawCallback);
    EXPECT_FALSE(writesColorAlone(window)) << "it may bind targets of its own";
}

} // namespace

TEST(PickAttachments, AreReadBackFromACameraThatDrawsIntoThem)
{
    const std::vector<TestPoint> points = scatteredPoints();
    for (const bool eyeDome : {false, true}) {
        PickScene scene(points);
        ShaderHelper::switchEDLShader(scene.scene, eyeDome);
        osg::ref_ptr<PickAttachments> attachments =
            new PickAttachments(PointPicture::kSize, PointPicture::kSize);
        osg::ref_ptr<ReadAllPixels> reader = new ReadAllPixels(attachments);
        attachments->attachTo(scene.viewer.camera());
        scene.viewer.camera().setClearColor(osg::Vec4(0, 0, 0, 0));
        scene.viewer.camera().setPostDrawCallback(reader);
        scene.viewer.frame();
        scene.viewer.frame();
        ASSERT_EQ(reader->picks.size(), points.size());
        for (size_t i = 0; i < points.size(); ++i)
            EXPECT_LT((reader->picks[i].position - coordinates(points[i])).length(), 1e-5);
    }
}

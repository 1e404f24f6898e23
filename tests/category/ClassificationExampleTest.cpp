// The code of docs/classification-api.md, compiled and run.

#include "tests/category/CategoryScene.h"
#include "tests/support/DocsPage.h"
#include "tests/support/HeadlessViewer.h"

#include <VelOsgDBBrx/PCViewerManager.h>

#include <gtest/gtest.h>

#include <iostream>

using namespace VelOsgDBBrx;

namespace {

void start(osgViewer::Viewer* viewer, IPointCloud* cloud)
{
    CategoryCalcTool::getInstance()->registerCloud("north bank", cloud);
    PCViewerManager::getInstance()->registerViewer(viewer, "north bank");
}

osg::ref_ptr<PolygonCmd> makeEdit(osgViewer::Viewer& viewer, Polygon polygon, int toClass)
{
    const osg::Camera& camera = *viewer.getCamera();
    const osg::GraphicsContext::Traits& window = *camera.getGraphicsContext()->getTraits();
    for (osg::Vec2d& vertex : polygon)
        vertex.y() = window.height - vertex.y(); // OSG's events count y up, the record counts it down

    osg::ref_ptr<PolygonCmd> edit = new PolygonCmd;
    edit->base.polygon = polygon;
    edit->base.vpw =
        camera.getViewMatrix() * camera.getProjectionMatrix() * camera.getViewport()->computeWindowMatrix();
    edit->base.width = window.width;
    edit->base.height = window.height;
    edit->base.toClass = toClass;
    return edit;
}

CategoryReport::Counts groundToBuilding(osgViewer::Viewer& viewer, const Polygon& polygon, bool dryRun)
{
    const osg::ref_ptr<PolygonCmd> edit = makeEdit(viewer, polygon, 6);
    edit->base.setFromClasses({1, 2}); // unclassified and ground; buildings and trees stay

    const osg::ref_ptr<Category> request = new Category("north bank", edit);
    request->dryRun = dryRun;
    request->report = new CategoryReport;
    CategoryCalcTool::getInstance()->push(request);
    request->report->wait(); // or go on, and look at `state()` each frame
    if (request->report->state() == CategoryReport::REFUSED)
        std::cerr << request->report->status().message() << '\n';
    return request->report->counts();
}

void asTheOperatorSeesIt(Base& base, const std::vector<osg::Vec4d>& clipPlanes,
                         const std::bitset<256>& classesShown)
{
    base.planesA = clipPlanes;
    base.shownClasses = classesShown;
    base.flag = Base::HIDDEN_POINTS; // hidden points are edited all the same
}

osg::ref_ptr<PixelBuffer> brushEdit(const Base& cameraAndClass, osg::Image* mask)
{
    osg::ref_ptr<PixelBuffer> edit = new PixelBuffer;
    edit->base = cameraAndClass;
    edit->mask = mask;
    edit->maskWidth = mask->s();
    edit->maskHeight = mask->t();
    return edit;
}

osg::ref_ptr<CategoryBuffer> pickedPoint(int64_t index, uint8_t toClass)
{
    osg::ref_ptr<CategoryBuffer> edit = new CategoryBuffer;
    edit->points["north bank"] = {index};
    edit->classes["north bank"] = {toClass};
    return edit;
}

bool saveAll()
{
    const VelBrx::Status status = CategoryCalcTool::getInstance()->writeToStores();
    if (!status) std::cerr << status.message() << '\n';
    return status.ok();
}

bool mayClose(const std::function<bool()>& userWantsToLoseEdits)
{
    CategoryCalcTool* tool = CategoryCalcTool::getInstance();
    tool->waitUntilHandled();
    return !tool->hasUnwritten() || userWantsToLoseEdits();
}

} // namespace

TEST(ClassificationExample, DoesWhatItsPageSays)
{
    TempFolder folder;
    const LoadedStore store(writeClassifiedStore(folder));
    HeadlessViewer view(200, 150);
    const Screen screen = Screen::lookingAt({-90, -160, 120}, {3, -2, 1});
    view.camera().setViewMatrix(screen.view);
    view.camera().setProjectionMatrix(screen.projection);
    start(view.viewer, store.cloud);
    CategoryCalcTool& tool = *CategoryCalcTool::getInstance();
    const Polygon upperHalf = {{0, 75}, {200, 75}, {200, 150}, {0, 150}};

    const CategoryReport::Counts counted = groundToBuilding(*view.viewer, upperHalf, true);
    EXPECT_GT(counted.changed, 500u);
    EXPECT_EQ(counted.changed, counted.before[1] + counted.before[2]);
    EXPECT_TRUE(mayClose([] { return false; }));
    EXPECT_EQ(groundToBuilding(*view.viewer, upperHalf, false).changed, counted.changed);
    EXPECT_FALSE(mayClose([] { return false; }));
    tool.pop();
    EXPECT_TRUE(mayClose([] { return false; }));

    const osg::ref_ptr<PolygonCmd> edit = makeEdit(*view.viewer, upperHalf, 6);
    asTheOperatorSeesIt(edit->base, {{0, 0, 1, 0}}, std::bitset<256>().set(2));
    const CategoryReport::Counts seen = pushAndWait("north bank", edit)->counts();
    EXPECT_EQ(seen.changed, seen.before[2]);
    const osg::ref_ptr<osg::Image> mask = new osg::Image;
    mask->allocateImage(100, 75, 1, GL_LUMINANCE, GL_UNSIGNED_BYTE);
    std::fill_n(mask->data(), mask->getTotalSizeInBytes(), uint8_t{1});
    EXPECT_GT(pushAndWait("north bank", brushEdit(edit->base, mask))->counts().selected, 0u);
    EXPECT_EQ(pushAndWait("north bank", pickedPoint(5, 40))->counts().changed, 1u);
    EXPECT_TRUE(saveAll());
    EXPECT_EQ(storedClasses(store.path)[5], 40);
    tool.save();
    PCViewerManager::getInstance()->unRegisterViewer("north bank");
}

TEST(ClassificationExample, IsTheCodeOfItsPage)
{
    const std::string root = VELBRX_SOURCE_DIR;
    EXPECT_EQ(blocksNotIn(root + "/examples/minimal/main.cpp", root + "/README.md"),
              std::vector<std::string>());
    EXPECT_EQ(blocksNotIn(root + "/tests/category/ClassificationExampleTest.cpp",
                          root + "/docs/classification-api.md"),
              std::vector<std::string>());
}

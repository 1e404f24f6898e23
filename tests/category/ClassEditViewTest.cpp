#include "tests/category/CategoryScene.h"
#include "tests/support/Eventually.h"
#include "tests/support/Settle.h"
#include "tests/support/ThreadingModels.h"

#include <VelOsgDBBrx/CategoryCmdInner.h>
#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>

using namespace VelOsgDBBrx;

namespace {

constexpr int kEditedClass = 9;
const std::string kUid = "the cloud";

const osg::Vec3ub kRed(255, 0, 0);
const osg::Vec3ub kBlue(0, 0, 255);

/// A store on the screen: points of class 9 red, all others blue.
struct ClassView
{
    ClassView(const std::string& path, const Screen& screen, osgViewer::ViewerBase::ThreadingModel threading)
        : view(screen.width, screen.height, threading), store(path)
    {
        std::vector<osg::Vec4f> colors(256, osg::Vec4f(0, 0, 1, 1));
        colors[kEditedClass] = osg::Vec4f(1, 0, 0, 1);
        ShaderHelper::classificationColorShader(store.cloud, colors);
        GlobalObject::registerGraphicsContext(view.window);
        view.camera().setViewMatrix(screen.view);
        view.camera().setProjectionMatrix(screen.projection);
        view.show(store.cloud);
    }

    ~ClassView()
    {
        view.viewer->stopThreading();
        GlobalObject::unRegisterGraphicsContext(view.window);
    }

    int count(const osg::Vec3ub& color)
    {
        EXPECT_TRUE(settle(view));
        return countOf(*view.picture(), color);
    }

    HeadlessViewer view;
    LoadedStore store;
};

class EditsOnTheScreen : public testing::TestWithParam<osgViewer::ViewerBase::ThreadingModel>
{
};

INSTANTIATE_TEST_SUITE_P(ThreadingModels, EditsOnTheScreen, everyThreadingModel(), threadingModelName);

TEST_P(EditsOnTheScreen, ChangeThePicturesOfTwoContextsWhileBothAreDrawn)
{
    TempFolder folder;
    const std::string path = writeClassifiedStore(folder, "cloud.brx", 5, 6000);
    const Screen screen = Screen::lookingAt({-90, -160, 120}, {3, -2, 1});
    ClassView first(path, screen, GetParam());
    ClassView second(path, screen, GetParam());
    CategoryCalcTool& tool = *CategoryCalcTool::getInstance();
    tool.setPixelBufferTool(nullptr);
    tool.registerCloud(kUid, first.store.cloud);
    PCViewerManager::getInstance()->registerViewer(first.view.viewer, kUid);

    const int drawn = first.count(kBlue);
    EXPECT_GT(drawn, 1000);
    EXPECT_EQ(first.count(kRed), 0);
    EXPECT_EQ(second.count(kBlue), drawn);

    // Edits and undos while both draw; the last edit stays.
    for (int i = 0; i < 8; ++i) {
        tool.push(new Category(kUid, polygonEdit(kEverything, screen, i % 2 ? kEditedClass : 3)));
        if (i % 3 == 2) tool.pop();
        first.view.frame();
        second.view.frame();
    }
    pushAndWait(kUid, polygonEdit(kEverything, screen, kEditedClass));
    for (ClassView* view : {&first, &second}) {
        EXPECT_EQ(view->count(kRed), drawn);
        EXPECT_EQ(view->count(kBlue), 0);
    }

    pushAndWait(Category::RESET);
    EXPECT_EQ(first.count(kBlue), drawn);
    EXPECT_EQ(second.count(kRed), 0);

    pushAndWait(kUid, polygonEdit(kEverything, screen, kEditedClass));
    EXPECT_EQ(first.count(kRed), drawn);
    pushAndWait(Category::UNDO);
    EXPECT_EQ(first.count(kBlue), drawn) << "after an undo, which compiles its cells first";
    EXPECT_EQ(second.count(kRed), 0);
    PCViewerManager::getInstance()->unRegisterViewer(kUid);
}

TEST(CategoryManagerOfAContext, EditsTheCloudsThatItsCameraHasSeen)
{
    TempFolder folder;
    const Screen screen = Screen::lookingAt({-90, -160, 120}, {3, -2, 1});
    ClassView view(writeClassifiedStore(folder, "cloud.brx", 6, 3000), screen,
                   osgViewer::ViewerBase::SingleThreaded);
    const int drawn = view.count(kBlue);
    const osg::ref_ptr<CategoryCmdInner> command = new CategoryCmdInner;
    command->polygon = kEverything;
    command->vpw = screen.vpw();
    command->width = screen.width;
    command->height = screen.height;
    command->toClass = kEditedClass;
    IPointCategoryManager& manager = *GlobalObject::getPCM(view.view.window);
    manager.pushCmd(command);
    EXPECT_TRUE(eventually([&] { return view.count(kRed) == drawn; }));
    manager.pushKind3();
    EXPECT_TRUE(eventually([&] { return view.count(kBlue) == drawn; }));
}

} // namespace

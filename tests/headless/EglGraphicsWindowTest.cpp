#include "tests/support/HeadlessViewer.h"
#include "tests/support/ThreadingModels.h"

#include <gtest/gtest.h>
#include <osg/GLExtensions>
#include <osg/Geode>
#include <osg/Geometry>

namespace {

using ViewerBase = osgViewer::ViewerBase;

/// A square of the given colour that covers the left half of clip space.
osg::ref_ptr<osg::Node> leftHalf(const osg::Vec4& color)
{
    const osg::ref_ptr<osg::Geometry> geometry = osg::createTexturedQuadGeometry(
        osg::Vec3(-1, -1, 0), osg::Vec3(1, 0, 0), osg::Vec3(0, 2, 0), 0, 0, 1, 1);
    const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array(1, &color);
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

/// Looks at clip space itself.
void showFlat(HeadlessViewer& headless, osg::Node* scene)
{
    headless.camera().setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    headless.camera().setProjectionMatrix(osg::Matrix::ortho(-1, 1, -1, 1, -1, 1));
    headless.camera().setViewMatrix(osg::Matrix::identity());
    headless.show(scene);
}

const osg::Vec4 kOrange(1.0f, 0.5f, 0.0f, 1.0f);
const osg::Vec3ub kOrangeBytes(255, 128, 0);
const osg::Vec3ub kBlack(0, 0, 0);

class InThreadingModel : public testing::TestWithParam<ViewerBase::ThreadingModel>
{
};

INSTANTIATE_TEST_SUITE_P(All, InThreadingModel, everyThreadingModel(), threadingModelName);

} // namespace

TEST_P(InThreadingModel, DrawnColoursAreReadBackWhereTheyWereDrawn)
{
    HeadlessViewer headless(64, 32, GetParam());
    showFlat(headless, leftHalf(kOrange));
    const osg::ref_ptr<osg::Image> picture = headless.picture();

    ASSERT_EQ(picture->s(), 64);
    ASSERT_EQ(picture->t(), 32);
    EXPECT_EQ(pixel(*picture, 0, 0), kOrangeBytes);
    EXPECT_EQ(pixel(*picture, 31, 31), kOrangeBytes);
    EXPECT_EQ(pixel(*picture, 32, 0), kBlack);
    EXPECT_EQ(countOtherThan(*picture, kBlack), 32 * 32);
}

TEST_P(InThreadingModel, ThePictureIsThatOfTheFrameAskedFor)
{
    HeadlessViewer headless(16, 16, GetParam());
    showFlat(headless, leftHalf(kOrange));
    for (int i = 0; i < 20; ++i) {
        headless.camera().setClearColor(osg::Vec4(0, 0, static_cast<float>(i) / 255.0f, 1));
        EXPECT_EQ(pixel(*headless.picture(), 12, 8), osg::Vec3ub(0, 0, static_cast<unsigned char>(i)));
    }
}

TEST_P(InThreadingModel, AResizedWindowDrawsAtItsNewSize)
{
    HeadlessViewer headless(64, 64, GetParam());
    showFlat(headless, leftHalf(kOrange));
    headless.frame();
    for (const int size : {200, 48}) {
        headless.window->setWindowRectangle(0, 0, size, size);
        headless.frame();
        const osg::ref_ptr<osg::Image> picture = headless.picture();
        ASSERT_EQ(picture->s(), size);
        EXPECT_EQ(pixel(*picture, size / 2 - 1, size - 1), kOrangeBytes);
        EXPECT_EQ(countOtherThan(*picture, kBlack), size * size / 2);
    }
}

TEST(EglGraphicsWindow, TwoWindowsDrawAtOnceEachItsOwnScene)
{
    HeadlessViewer first(32, 32, ViewerBase::DrawThreadPerContext);
    HeadlessViewer second(48, 48, ViewerBase::DrawThreadPerContext);
    showFlat(first, leftHalf(kOrange));
    showFlat(second, leftHalf(osg::Vec4(0, 0, 1, 1)));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(pixel(*first.picture(), 3, 3), kOrangeBytes);
        EXPECT_EQ(pixel(*second.picture(), 3, 3), osg::Vec3ub(0, 0, 255));
    }
}

TEST(EglGraphicsWindow, AWindowDrawsAfterOthersWereClosed)
{
    HeadlessViewer survivor(32, 32);
    showFlat(survivor, leftHalf(kOrange));
    for (int i = 0; i < 20; ++i) {
        HeadlessViewer shortLived(32, 32);
        showFlat(shortLived, leftHalf(kOrange));
        EXPECT_EQ(pixel(*shortLived.picture(), 3, 3), kOrangeBytes);
    }
    EXPECT_EQ(pixel(*survivor.picture(), 3, 3), kOrangeBytes);
}

TEST(EglGraphicsWindow, TheContextHasWhatThePointShadersNeed)
{
    HeadlessViewer headless(16, 16);
    headless.show(new osg::Group);
    ASSERT_TRUE(headless.window->makeCurrent());
    const auto* extensions = headless.window->getState()->get<osg::GLExtensions>();
    EXPECT_GE(extensions->glVersion, 4.3f);
    EXPECT_TRUE(extensions->isGlslSupported);
    GLint profile = 0;
    glGetIntegerv(0x9126 /* GL_CONTEXT_PROFILE_MASK */, &profile);
    EXPECT_EQ(profile, 2 /* GL_CONTEXT_COMPATIBILITY_PROFILE_BIT */);
    headless.window->releaseContext();
}

TEST(EglGraphicsWindow, ASharedContextUsesTheObjectsOfTheFirst)
{
    std::string reason;
    const auto first = EglGraphicsWindow::create(16, 16, reason);
    ASSERT_TRUE(first) << reason;
    const osg::ref_ptr<osg::GraphicsContext::Traits> traits =
        new osg::GraphicsContext::Traits(*first->getTraits());
    traits->sharedContext = first.get();
    const auto second = EglGraphicsWindow::create(traits, reason);
    ASSERT_TRUE(second) << reason;
    EXPECT_EQ(first->getState()->getContextID(), second->getState()->getContextID());

    ASSERT_TRUE(first->realize() && first->makeCurrent());
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    first->releaseContext();
    ASSERT_TRUE(second->realize() && second->makeCurrent());
    EXPECT_TRUE(glIsTexture(texture));
    second->releaseContext();
}

TEST(EglGraphicsWindow, ImpossibleSizesGiveAReasonAndNoWindow)
{
    for (const auto& [width, height] : {std::pair(0, 10), std::pair(10, -1), std::pair(1000000, 1000000)}) {
        std::string reason;
        EXPECT_FALSE(EglGraphicsWindow::create(width, height, reason));
        EXPECT_FALSE(reason.empty());
        EXPECT_EQ(reason.find('\n'), std::string::npos);
    }
}

#include "tests/support/HeadlessViewer.h"
#include "tests/support/ThreadingModels.h"

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>

namespace {

using ViewerBase = osgViewer::ViewerBase;

const osg::Vec3ub kOrange(255, 128, 0);
const osg::Vec3ub kBlack(0, 0, 0);

/// An orange square that covers the left half of clip space.
osg::ref_ptr<osg::Node> leftHalf()
{
    const osg::ref_ptr<osg::Geometry> geometry = osg::createTexturedQuadGeometry(
        osg::Vec3(-1, -1, 0), osg::Vec3(1, 0, 0), osg::Vec3(0, 2, 0), 0, 0, 1, 1);
    const osg::ref_ptr<osg::Vec4Array> colors = new osg::Vec4Array;
    colors->push_back(osg::Vec4(1.0f, 0.5f, 0.0f, 1.0f));
    geometry->setColorArray(colors, osg::Array::BIND_OVERALL);
    const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

/// Looks at the square in clip space.
void showSquare(HeadlessViewer& headless)
{
    headless.camera().setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    headless.camera().setProjectionMatrix(osg::Matrix::ortho(-1, 1, -1, 1, -1, 1));
    headless.camera().setViewMatrix(osg::Matrix::identity());
    headless.show(leftHalf());
}

class InThreadingModel : public testing::TestWithParam<ViewerBase::ThreadingModel>
{
};

INSTANTIATE_TEST_SUITE_P(All, InThreadingModel, everyThreadingModel(), threadingModelName);

} // namespace

TEST_P(InThreadingModel, ThePictureIsThatOfTheFrameAskedFor)
{
    HeadlessViewer headless(16, 16, GetParam());
    showSquare(headless);
    for (int i = 0; i < 20; ++i) {
        headless.camera().setClearColor(osg::Vec4(0, 0, static_cast<float>(i) / 255.0f, 1));
        EXPECT_EQ(pixel(*headless.picture(), 12, 8), osg::Vec3ub(0, 0, static_cast<unsigned char>(i)));
    }
}

TEST_P(InThreadingModel, AResizedWindowDrawsAtItsNewSize)
{
    HeadlessViewer headless(64, 64, GetParam());
    showSquare(headless);
    headless.frame();
    for (const int size : {200, 48}) {
        headless.window->setWindowRectangle(0, 0, size, size);
        headless.frame();
        const osg::ref_ptr<osg::Image> picture = headless.picture();
        ASSERT_EQ(picture->s(), size);
        EXPECT_EQ(pixel(*picture, size / 2 - 1, size - 1), kOrange);
        EXPECT_EQ(countOtherThan(*picture, kBlack), size * size / 2);
    }
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

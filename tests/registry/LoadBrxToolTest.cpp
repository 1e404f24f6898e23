#include <VelOsgDBBrx/LoadBrxTool.h>

#include "loading/CellData.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"

#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/StateSet>

#include <gtest/gtest.h>

namespace {

using VelOsgDBBrx::IPointCloud;
using VelOsgDBBrx::LoadBrxTool;

class LoadBrxToolTest : public testing::Test
{
protected:
    TempFolder folder;
    TestStore store = smallStore();
    std::string path = folder.write("small.brx", store.bytes());
    osg::Vec3d offset, min, max;
    VelBrx::BrxHeader header;
};

TEST_F(LoadBrxToolTest, EveryFormGivesANodeWithoutAnOwnerAndWhatItPromises)
{
    osg::ref_ptr<osg::Node> node = LoadBrxTool::loadBrxFile(path, offset, min, max, header, "");
    ASSERT_TRUE(node);
    EXPECT_EQ(node->referenceCount(), 1);
    EXPECT_EQ(offset, osg::Vec3d(636000, 849000, 400));
    EXPECT_NEAR((min - osg::Vec3d(-7.99, -7, -7)).length(), 0, 1e-6);
    EXPECT_NEAR((max - osg::Vec3d(7.99, 7.99, 7.7)).length(), 0, 1e-6);
    EXPECT_EQ(header.pointCount, store.points.size());

    osg::Vec3d otherOffset;
    VelBrx::BrxHeader otherHeader;
    EXPECT_TRUE(osg::ref_ptr<osg::Node>(LoadBrxTool::loadBrxFile(path, "")));
    EXPECT_TRUE(osg::ref_ptr<osg::Node>(LoadBrxTool::loadBrxFileOffset(path, otherOffset, "")));
    EXPECT_EQ(otherOffset, offset);
    EXPECT_TRUE(osg::ref_ptr<osg::Node>(LoadBrxTool::loadBrxFile(path, otherHeader, "")));
    EXPECT_EQ(otherHeader.storeId, header.storeId);
}

TEST_F(LoadBrxToolTest, TheCloudHoldsTheOctreeThatTheStoreDescribes)
{
    const osg::ref_ptr<osg::Node> node = LoadBrxTool::loadBrxFile(path, "no.normals");
    auto& cloud = dynamic_cast<IPointCloud&>(*node);
    OctreeInfo& octree = *cloud.getOctree();
    EXPECT_FALSE(node->getCullingActive());
    EXPECT_EQ(cloud.getNumChildren(), 1u);
    EXPECT_EQ(octree.pointPath, path);
    EXPECT_EQ(octree.normalsPath, "no.normals");
    EXPECT_TRUE(octree.pointFile->isOpen());
    EXPECT_FALSE(octree.normalsFile->isValid());
    EXPECT_EQ(octree.scale, osg::Vec3d(0.01, 0.01, 0.01));
    EXPECT_EQ(octree.pointDataStart, static_cast<int64_t>(store.pointDataStart()));
    ASSERT_TRUE(octree.root);
    EXPECT_EQ(octree.root->children.size(), 2u);
    EXPECT_EQ(octree.root->record.segments.size(), 2u);

    cloud.setPlanes({osg::Vec4d(1, 2, 3, 4)});
    EXPECT_EQ(octree.planes.size(), 1u);
    cloud.setPlanes({});
    EXPECT_TRUE(octree.planes.empty());
}

TEST_F(LoadBrxToolTest, CloudsLoadedLaterAreDrawnLater)
{
    const osg::ref_ptr<osg::Node> first = LoadBrxTool::loadBrxFile(path, "");
    const osg::ref_ptr<osg::Node> second = LoadBrxTool::loadBrxFile(path, "");
    EXPECT_EQ(second->getStateSet()->getBinNumber(), first->getStateSet()->getBinNumber() + 1);
    EXPECT_EQ(second->getStateSet()->getBinName(), "RenderBin");
}

TEST_F(LoadBrxToolTest, WhatIsNoStoreLoadsAsNullAndWritesNothing)
{
    offset.set(1, 2, 3);
    std::vector<uint8_t> damaged = store.bytes();
    damaged[store.indexStart() + 20] ^= 1;
    const std::string files[] = {folder.file("missing.brx"),
                                 folder.write("empty.brx", {}),
                                 folder.write("text.brx", {'n', 'o'}),
                                 folder.write("damaged.brx", damaged),
                                 folder.path().string(),
                                 std::string()};
    for (const std::string& file : files) {
        EXPECT_FALSE(osg::ref_ptr<osg::Node>(LoadBrxTool::loadBrxFile(file, offset, min, max, header, "")))
            << file;
    }
    EXPECT_EQ(offset, osg::Vec3d(1, 2, 3));
    EXPECT_EQ(max, osg::Vec3d());
}

} // namespace

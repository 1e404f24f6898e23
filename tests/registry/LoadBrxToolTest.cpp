#include <VelOsgDBBrx/LoadBrxTool.h>

#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/BoundingBox>
#include <osg/StateSet>

#include <gtest/gtest.h>

#include <functional>

namespace {

using VelOsgDBBrx::IPointCloud;
using VelOsgDBBrx::LoadBrxTool;

/// A store whose axes have scales of their own.
TestStore unevenStore()
{
    TestStore store = smallStore();
    store.scale[1] /= 2;
    store.scale[2] /= 4;
    store.updateStatistics();
    return store;
}

class LoadBrxToolTest : public testing::Test
{
protected:
    /// Metres from the store's offset.
    osg::Vec3d local(const TestPoint& point) const
    {
        return osg::Vec3d(point.x * store.scale[0], point.y * store.scale[1], point.z * store.scale[2]);
    }

    /// A normals file with a vector of zeros for each point.
    std::string writeNormals() const
    {
        std::vector<uint8_t> bytes = {
            'V', 'B', 'N', 'M', 1, 0, 0, 0, static_cast<uint8_t>(store.points.size())};
        bytes.resize(16 + 16 * store.points.size());
        return folder.write("small.normals", bytes);
    }

    TempFolder folder;
    TestStore store = unevenStore();
    std::string path = folder.write("small.brx", store.bytes());
    osg::Vec3d offset, min, max;
    VelBrx::BrxHeader header;
};

TEST_F(LoadBrxToolTest, EveryFormGivesTheWholeCloudAndWhatItPromises)
{
    const std::string normals = writeNormals();
    osg::BoundingBoxd box;
    for (const TestPoint& point : store.points)
        box.expandBy(local(point));
    struct Form
    {
        std::function<osg::Node*()> load;
        bool givesOffset, givesBox, givesHeader;
    };
    const Form forms[] = {
        {[&] { return LoadBrxTool::loadBrxFile(path, normals); }, false, false, false},
        {[&] { return LoadBrxTool::loadBrxFileOffset(path, offset, normals); }, true, false, false},
        {[&] { return LoadBrxTool::loadBrxFile(path, offset, min, max, normals); }, true, true, false},
        {[&] { return LoadBrxTool::loadBrxFile(path, header, normals); }, false, false, true},
        {[&] { return LoadBrxTool::loadBrxFile(path, offset, min, max, header, normals); }, true, true, true},
    };
    for (const Form& form : forms) {
        SCOPED_TRACE(&form - forms);
        offset = min = max = osg::Vec3d();
        header = {};
        const osg::ref_ptr<osg::Node> node = form.load();
        ASSERT_TRUE(node);
        EXPECT_EQ(node->referenceCount(), 1);
        EXPECT_FALSE(node->getCullingActive());
        EXPECT_EQ(node->asGroup()->getNumChildren(), 1u);

        OctreeInfo& octree = *dynamic_cast<IPointCloud&>(*node).getOctree();
        EXPECT_EQ(octree.pointPath, path);
        EXPECT_EQ(octree.normalsPath, normals);
        EXPECT_TRUE(octree.pointFile->isOpen());
        EXPECT_EQ(octree.offset, osg::Vec3d(636000, 849000, 400));
        EXPECT_EQ(octree.scale, osg::Vec3d(0.01, 0.005, 0.0025));
        EXPECT_EQ(octree.pointDataStart, static_cast<int64_t>(store.pointDataStart()));
        EXPECT_LT((octree.min - box._min).length(), 1e-6);
        EXPECT_LT((octree.max - box._max).length(), 1e-6);
        EXPECT_EQ(octree.normalsFile->size(), static_cast<int64_t>(16 + 16 * store.points.size()));
        ASSERT_TRUE(octree.root);
        EXPECT_EQ(octree.root->children.size(), 2u);
        EXPECT_EQ(octree.root->record.segments.size(), 2u);

        EXPECT_EQ(offset, form.givesOffset ? octree.offset : osg::Vec3d());
        EXPECT_EQ(min, form.givesBox ? octree.min : osg::Vec3d());
        EXPECT_EQ(max, form.givesBox ? octree.max : osg::Vec3d());
        EXPECT_EQ(header.pointCount, form.givesHeader ? store.points.size() : 0);
    }
}

TEST_F(LoadBrxToolTest, ACloudWithoutItsNormalsIsLoadedAndHandsItsPlanesToTheOctree)
{
    const osg::ref_ptr<osg::Node> node = LoadBrxTool::loadBrxFile(path, "no.normals");
    auto& cloud = dynamic_cast<IPointCloud&>(*node);
    OctreeInfo& octree = *cloud.getOctree();
    EXPECT_FALSE(octree.normalsFile->isValid());
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

#include <VelOsgDBBrx/OpenCloud.h>

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"

#include <VelOsgDBBrx/LoadBrxTool.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <gtest/gtest.h>
#include <osg/MatrixTransform>

#include <cstring>
#include <limits>

#include <sys/inotify.h>
#include <unistd.h>

using VelOsgDBBrx::openCloud;
using VelOsgDBBrx::OpenedCloud;
using VelOsgDBBrx::OpenOptions;

namespace {

/// Counts how often a file is opened.
class OpenCounter
{
public:
    explicit OpenCounter(const std::string& path)
    {
        // Events that are alike are merged: reading and closing set openings apart.
        EXPECT_GE(inotify_add_watch(_queue, path.c_str(), IN_OPEN | IN_ACCESS | IN_CLOSE), 0);
    }
    ~OpenCounter() { close(_queue); }
    OpenCounter(const OpenCounter&) = delete;
    OpenCounter& operator=(const OpenCounter&) = delete;

    /// Since the last call.
    int count()
    {
        constexpr size_t kEvent = sizeof(inotify_event); // of a single file: without names
        char events[64 * kEvent];
        const ssize_t size = read(_queue, events, sizeof events);
        int openings = 0;
        for (size_t at = 0; size > 0 && at < static_cast<size_t>(size); at += kEvent) {
            inotify_event event;
            std::memcpy(&event, events + at, kEvent);
            openings += (event.mask & IN_OPEN) != 0 ? 1 : 0;
        }
        return openings;
    }

private:
    const int _queue = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

class OpenCloud : public testing::Test
{
protected:
    /// A normals file of version 2, or of version 1 with `word` as the number of points.
    std::vector<uint8_t> normalsFile(uint64_t word, size_t points, uint32_t version = 2) const
    {
        std::vector<uint8_t> bytes(16 + 16 * points);
        std::memcpy(bytes.data(), "VBNM", 4);
        VelBrx::storeLe<uint32_t>(&bytes[4], version);
        VelBrx::storeLe<uint64_t>(&bytes[8], word);
        return bytes;
    }

    bool hasNormals() const { return opened.cloud->getOctree()->normalsFile->isValid(); }

    TempFolder folder;
    TestStore store = smallStore();
    const std::string path = folder.write("small.brx", store.bytes());
    const std::string ownNormals = path + ".normals";
    OpenedCloud opened;
};

} // namespace

TEST_F(OpenCloud, GivesTheCloudWithAllThatItsStoreSaysOfItself)
{
    ASSERT_TRUE(openCloud(path, OpenOptions(), opened));
    EXPECT_EQ(opened.header.pointCount, store.points.size());
    EXPECT_EQ(opened.statistics.elevation.max, store.index.statistics.elevation.max);
    EXPECT_TRUE(opened.normals);
    EXPECT_FALSE(hasNormals());
    EXPECT_TRUE(opened.cloud->getOctree()->pointFile->isWritable());
    const auto* const place = dynamic_cast<osg::MatrixTransform*>(opened.node.get());
    ASSERT_TRUE(place);
    EXPECT_EQ(place->getMatrix().getTrans(), osg::Vec3d(636000, 849000, 400));
    EXPECT_EQ(place->getChild(0), opened.cloud);
    EXPECT_EQ(place->getDataVariance(), osg::Object::DYNAMIC);

    OpenOptions local;
    local.frame = OpenOptions::Frame::LOCAL;
    ASSERT_TRUE(openCloud(path, local, opened));
    EXPECT_EQ(opened.node, opened.cloud);
}

TEST_F(OpenCloud, OpensTheStoreOnce)
{
    OpenCounter opens(path);
    ASSERT_TRUE(openCloud(path, OpenOptions(), opened));
    EXPECT_EQ(opens.count(), 1);
    osg::Vec3d offset, min, max;
    VelBrx::BrxHeader header;
    ASSERT_TRUE(osg::ref_ptr<osg::Node>(
        VelOsgDBBrx::LoadBrxTool::loadBrxFile(path, offset, min, max, header, ownNormals)));
    EXPECT_EQ(opens.count(), 1);
}

TEST_F(OpenCloud, SaysWhatIsWrongWithAFileAndLeavesTheResultAsItWas)
{
    std::vector<uint8_t> damaged = store.bytes();
    VelBrx::storeLe(&damaged[VelBrx::LasLayout::kBounds], std::numeric_limits<double>::quiet_NaN());
    const std::pair<std::string, std::string> files[] = {
        {folder.write("bounds.brx", damaged), ": the LAS header's bounds are not a box; restore"},
        {folder.write("text.brx", std::vector<uint8_t>(400, 'x')), ": is not an octree store; build"},
        {folder.file("missing.brx"), ": cannot be opened (No such file"},
        {folder.path().string(), ": is not a regular file"}};
    opened.header.pointCount = 77;
    for (const auto& [file, reason] : files) {
        const VelBrx::Status status = openCloud(file, OpenOptions(), opened);
        EXPECT_EQ(status.message().rfind(file + reason, 0), 0u) << status.message();
        EXPECT_EQ(opened.header.pointCount, 77u);
        EXPECT_FALSE(opened.cloud);
    }
}

TEST_F(OpenCloud, TakesNormalsOfTheStoreAndNoOthers)
{
    const size_t points = store.points.size();
    const uint64_t id = store.index.storeId;
    struct Case
    {
        std::vector<uint8_t> file;
        std::string reason; ///< empty: it fits
    };
    std::vector<uint8_t> cut = normalsFile(id, points);
    cut.pop_back();
    const Case cases[] = {{normalsFile(id, points), ""},
                          {normalsFile(points, points, 1), ""},
                          {normalsFile(points + 1, points, 1), "another store"},
                          {normalsFile(id + 1, points), "another store"},
                          {cut, "was cut"},
                          {normalsFile(id, points + 1), "added to"},
                          {normalsFile(id, points, 3), "version 3"},
                          {store.bytes(), "is not a normals file"},
                          {{}, "is not a normals file"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.reason);
        folder.write("small.brx.normals", c.file);
        OpenOptions named;
        named.normals = ownNormals;
        for (const OpenOptions& how : {OpenOptions(), named}) {
            ASSERT_TRUE(openCloud(path, how, opened));
            EXPECT_EQ(hasNormals(), c.reason.empty());
            EXPECT_EQ(opened.normals.ok(), c.reason.empty());
            EXPECT_NE(opened.normals.message().find(c.reason), std::string::npos) << opened.normals.message();
        }
        OpenOptions none;
        none.normals = "";
        ASSERT_TRUE(openCloud(path, none, opened));
        EXPECT_FALSE(hasNormals());
        EXPECT_TRUE(opened.normals);
    }
}

#include "bench/RatioReporter.h"
#include "bench/SampleStore.h"

#include "loading/OctreeCells.h"

#include <VelBrx/StoreInfo.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

constexpr uint64_t kPoints = 2000000;
constexpr int64_t kRecordSize = 36;

/// An octree with its file open, as a loaded store has it, and its cells in a list.
class OpenStore
{
public:
    OpenStore() : _sample(kPoints)
    {
        VelBrx::StoreInfo info;
        const VelBrx::Status read = readStoreInfo(_sample.path(), info);
        if (!read) throw std::runtime_error(read.message());
        const VelBrx::BrxHeader& header = info.header;
        octree->offset.set(header.offset[0], header.offset[1], header.offset[2]);
        octree->scale.set(header.scale[0], header.scale[1], header.scale[2]);
        octree->pointDataStart = header.pointDataStart;
        octree->pointFile = std::make_unique<VelBrx::File>(_sample.path().c_str());
        linkOctreeCells(info.cells, *octree);
        list(*octree->root);
    }

    osg::ref_ptr<OctreeInfo> octree = new OctreeInfo;
    std::vector<osg::ref_ptr<CellData>> cells;

private:
    void list(CellData& cell)
    {
        cells.emplace_back(&cell);
        for (const osg::ref_ptr<CellData>& child : cell.children)
            list(*child);
    }

    SampleStore _sample;
};

OpenStore& openStore()
{
    static OpenStore store;
    return store;
}

void setPoints(benchmark::State& state)
{
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kPoints));
}

void readCells(benchmark::State& state)
{
    for (auto _ : state)
        for (const osg::ref_ptr<CellData>& cell : openStore().cells) {
            const osg::ref_ptr<osg::Node> node = VelOsgDBBrx::LasReaderWriter::read(cell);
            benchmark::DoNotOptimize(node.get());
        }
    setPoints(state);
}

/// New arrays with the content of the reader's, each element written once.
struct BareArrays
{
    explicit BareArrays(size_t count)
        : positions(new float[3 * count]), indices(new int64_t[count]), gpsTimes(new float[count]),
          userData(new int[count]), sourceAndIntensity(new int[count]), angleAndReturns(new int[count]),
          classAndRed(new int[count]), greenAndBlue(new int[count])
    {
    }

    void fill(const uint8_t* record, size_t i, int64_t index, const OctreeInfo& octree)
    {
        const auto read = [record](int at, auto zero) {
            std::memcpy(&zero, record + at, sizeof zero);
            return zero;
        };
        for (int axis = 0; axis < 3; ++axis)
            positions[3 * i + static_cast<size_t>(axis)] =
                static_cast<float>(read(4 * axis, int32_t()) * octree.scale[axis]);
        indices[i] = index;
        gpsTimes[i] = static_cast<float>(read(22, double()));
        userData[i] = record[17];
        sourceAndIntensity[i] = read(20, uint16_t()) << 16 | read(12, uint16_t());
        angleAndReturns[i] = static_cast<int>(unsigned(read(18, uint16_t())) << 16 | read(14, uint16_t()));
        classAndRed[i] =
            static_cast<int>(unsigned(record[16]) << 24 | (record[15] & 15u) << 16 | read(30, uint16_t()));
        greenAndBlue[i] = static_cast<int>(unsigned(read(32, uint16_t())) << 16 | read(34, uint16_t()));
    }

    std::unique_ptr<float[]> positions;
    std::unique_ptr<int64_t[]> indices;
    std::unique_ptr<float[]> gpsTimes;
    std::unique_ptr<int[]> userData, sourceAndIntensity, angleAndReturns, classAndRed, greenAndBlue;
};

void fillBareArrays(benchmark::State& state)
{
    const OctreeInfo& octree = *openStore().octree;
    for (auto _ : state)
        for (const osg::ref_ptr<CellData>& cell : openStore().cells) {
            BareArrays arrays(cell->record.pointCount);
            size_t i = 0;
            for (const VelBrx::Segment& segment : cell->record.segments) {
                const auto* records = static_cast<const uint8_t*>(octree.pointFile->map(
                    octree.pointDataStart + kRecordSize * segment.first, kRecordSize * segment.count));
                for (int64_t point = 0; point < segment.count; ++point)
                    arrays.fill(records + kRecordSize * point, i++, segment.first + point, octree);
            }
            benchmark::DoNotOptimize(arrays.positions.get());
            benchmark::ClobberMemory();
        }
    setPoints(state);
}

} // namespace

BENCHMARK(readCells)->Name("read points of cells, one thread/ours")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(fillBareArrays)
    ->Name("read points of cells, one thread/limit")
    ->MeasureProcessCPUTime()
    ->UseRealTime();

int main(int argc, char** argv)
{
    return runBenchmarks(argc, argv);
}

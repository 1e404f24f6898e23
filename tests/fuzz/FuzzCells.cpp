// Stores and normals files as an enemy would write them, opened as viewer, plugin and hosts open them: every
// cell has arrays of one length, whatever can be read.

#include "tests/fuzz/FuzzFile.h"
#include "tests/fuzz/StoreMutator.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgDBBrx/OpenCloud.h>

#include <osg/Geode>
#include <osg/Geometry>

using namespace VelOsgDBBrx;

namespace {

void check(osg::Geometry& geometry, uint64_t declared)
{
    const unsigned points = geometry.getVertexArray()->getNumElements();
    expect(points <= declared, "more points than the index has");
    for (const unsigned location : {7u, 9u, 10u, 11u, 12u, 13u})
        expect(geometry.getVertexAttribArray(location)->getNumElements() == points,
               "arrays differ in length");
    if (const osg::Array* const normals = geometry.getVertexAttribArray(8))
        expect(normals->getNumElements() >= points, "fewer normals than points");
}

void readCells(CellData& cell)
{
    const osg::ref_ptr<osg::Node> leaf = LasReaderWriter::read(&cell);
    if (osg::Geode* const geode = leaf ? leaf->asGeode() : nullptr)
        check(*geode->getDrawable(0)->asGeometry(), cell.record.pointCount);
    for (const osg::ref_ptr<CellData>& child : cell.children)
        readCells(*child);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const FuzzFile store("store.brx");
    static const FuzzFile normals("store.normals");
    const size_t half = size > 4096 ? size - 4096 : size; // what is behind a whole store is its normals
    OpenOptions options;
    options.normals = normals.put(data + half, size - half);
    OpenedCloud opened;
    if (!reported(openCloud(store.put(data, half), options, opened))) return 0;
    (void)reported(opened.normals);
    if (CellData* const root = opened.cloud->getOctree()->root) readCells(*root);
    return 0;
}

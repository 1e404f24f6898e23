#include <VelOsgDBBrx/LasReaderWriter.h>

#include "loading/CellGeometry.h"
#include "loading/CellLeaf.h"
#include "loading/HeldPoints.h"
#include "loading/ModelMatrix.h"
#include "loading/PointAttributes.h"
#include "loading/PointMarks.h"
#include "loading/UnwrittenClasses.h"

#include <VelBrx/ReadErrors.h>
#include <VelOsgDBBrx/CellData.h>

#include <osg/Geometry>
#include <osg/ValueObject>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>

namespace {

constexpr int64_t kRecordSize = VelBrx::PointRecord::kPointSize;
constexpr int64_t kNormalSize = 16; ///< also the size of the normals file's header

template <typename T>
T load(const uint8_t* from)
{
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// The bytes of elements [first, first + count) of `size` bytes that begin at byte `start` of a file.
class MappedElements
{
public:
    MappedElements(VelBrx::File* file, int64_t start, int64_t size, int64_t first, int64_t count)
        : _file(file)
    {
        int64_t offset = 0;
        const bool overflow = __builtin_mul_overflow(first, size, &offset) ||
                              __builtin_add_overflow(offset, start, &offset) ||
                              __builtin_mul_overflow(count, size, &_length);
        if (_file && first >= 0 && !overflow) _bytes = _file->map(offset, _length);
    }
    ~MappedElements()
    {
        if (_bytes) _file->unmap(_bytes);
    }
    MappedElements(const MappedElements&) = delete;
    MappedElements& operator=(const MappedElements&) = delete;

    const uint8_t* bytes() const { return static_cast<const uint8_t*>(_bytes); }

    /// To be asked when the bytes have been used.
    bool wereRead() const { return VelBrx::wasRead(_bytes, _length); }

private:
    VelBrx::File* _file;
    void* _bytes = nullptr;
    int64_t _length = 0;
};

/// Global index of a point as the index array holds it: one 64-bit number in the two 32-bit halves.
osg::Vec2i packIndex(int64_t index)
{
    osg::Vec2i packed;
    static_assert(sizeof packed == sizeof index);
    std::memcpy(packed.ptr(), &index, sizeof index);
    return packed;
}

/// A run of records, decoded in the first-level cache.
struct DecodedBlock
{
    static constexpr int64_t kCapacity = 256;

    /// Takes the positions into `bounds`.
    void decode(const uint8_t* records, int64_t count, int64_t firstIndex, const OctreeInfo& octree,
                osg::BoundingBox& bounds);

    osg::Vec3f positions[kCapacity];
    osg::Vec2i indices[kCapacity];
    float gpsTimes[kCapacity];
    int userData[kCapacity];
    int sourceAndIntensity[kCapacity];
    int angleAndReturns[kCapacity];
    int classAndRed[kCapacity];
    int greenAndBlue[kCapacity];
};

void DecodedBlock::decode(const uint8_t* records, int64_t count, int64_t firstIndex, const OctreeInfo& octree,
                          osg::BoundingBox& bounds)
{
    using namespace VelBrx::PointRecord;
    using PointAttributes::packClass;
    using PointAttributes::packHalves;
    const osg::Vec3d scale = octree.scale; // copies stay in registers
    const osg::Vec3d offset = octree.offset;
    const auto position = [&](const uint8_t* field, int axis) {
        // Adding the offset and taking it off again rounds as file coordinates do.
        return static_cast<float>((load<int32_t>(field) * scale[axis] + offset[axis]) - offset[axis]);
    };
    osg::Vec3f low = bounds._min;
    osg::Vec3f high = bounds._max;
    for (int64_t i = 0; i < count; ++i) {
        const uint8_t* record = records + i * kRecordSize;
        const float x = position(record + kX, 0);
        const float y = position(record + kY, 1);
        const float z = position(record + kZ, 2);
        positions[i].set(x, y, z);
        low.set(std::min(low.x(), x), std::min(low.y(), y), std::min(low.z(), z));
        high.set(std::max(high.x(), x), std::max(high.y(), y), std::max(high.z(), z));
        indices[i] = packIndex(firstIndex + i);
        sourceAndIntensity[i] =
            packHalves(load<uint16_t>(record + kPointSource), load<uint16_t>(record + kIntensity));
        angleAndReturns[i] =
            packHalves(load<uint16_t>(record + kScanAngle), load<uint16_t>(record + kReturns));
        gpsTimes[i] = static_cast<float>(load<double>(record + kGpsTime));
        classAndRed[i] = packClass(record[kClass], record[kFlags], load<uint16_t>(record + kRed));
        greenAndBlue[i] = packHalves(load<uint16_t>(record + kGreen), load<uint16_t>(record + kBlue));
        userData[i] = record[kUserData];
    }
    bounds.set(low, high);
}

/// Appends to an array that has room. The array's memory is touched once: resizing it first would write it
/// twice, and reading cells is bound by memory.
template <typename Array, typename Element>
void append(Array& array, const Element* elements, int64_t count)
{
    array.insert(array.end(), elements, elements + count);
}

/// The arrays of one cell, filled together.
class PointArrays
{
public:
    PointArrays(const OctreeInfo& octree, int64_t capacity);

    int64_t count() const { return static_cast<int64_t>(_positions->size()); }

    /// Appends the points of `count` records; `firstIndex` is the global index of the first, `place` its
    /// place in the cell.
    void add(const uint8_t* records, int64_t count, int64_t firstIndex, int64_t place);

    /// The places of the points in the cell.
    std::vector<uint32_t> places() const;

    /// Gives the points the classes that were edited and are not in their records.
    void setClasses(const UnwrittenClasses::Cell& edited);

    /// Call it when the classes are there.
    void setMarks(const PointMarks& marks);

    void attachTo(CellGeometry& geometry) const;

private:
    void append(const DecodedBlock& block, int64_t count);

    struct Run
    {
        int64_t place; ///< of its first point, in the cell
        int64_t count;
    };

    const OctreeInfo& _octree;
    std::vector<Run> _runs;
    osg::BoundingBox _bounds;
    osg::ref_ptr<osg::Vec3Array> _positions = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2iArray> _indices = new osg::Vec2iArray;
    osg::ref_ptr<osg::FloatArray> _gpsTimes = new osg::FloatArray;
    osg::ref_ptr<osg::IntArray> _userData = new osg::IntArray;
    osg::ref_ptr<osg::IntArray> _sourceAndIntensity = new osg::IntArray;
    osg::ref_ptr<osg::IntArray> _angleAndReturns = new osg::IntArray;
    osg::ref_ptr<osg::IntArray> _classAndRed = new osg::IntArray;
    osg::ref_ptr<osg::IntArray> _greenAndBlue = new osg::IntArray;
};

PointArrays::PointArrays(const OctreeInfo& octree, int64_t capacity) : _octree(octree)
{
    const size_t size = static_cast<size_t>(capacity);
    _positions->reserve(size);
    _indices->reserve(size);
    _gpsTimes->reserve(size);
    for (osg::IntArray* array : {_userData.get(), _sourceAndIntensity.get(), _angleAndReturns.get(),
                                 _classAndRed.get(), _greenAndBlue.get()}) {
        array->reserve(size);
        array->setPreserveDataType(true);
    }
}

void PointArrays::add(const uint8_t* records, int64_t count, int64_t firstIndex, int64_t place)
{
    _runs.push_back({place, count});
    DecodedBlock block;
    for (int64_t begin = 0; begin < count; begin += DecodedBlock::kCapacity) {
        const int64_t size = std::min(DecodedBlock::kCapacity, count - begin);
        block.decode(records + begin * kRecordSize, size, firstIndex + begin, _octree, _bounds);
        append(block, size);
    }
}

void PointArrays::append(const DecodedBlock& block, int64_t count)
{
    ::append(*_positions, block.positions, count);
    ::append(*_indices, block.indices, count);
    ::append(*_gpsTimes, block.gpsTimes, count);
    ::append(*_userData, block.userData, count);
    ::append(*_sourceAndIntensity, block.sourceAndIntensity, count);
    ::append(*_angleAndReturns, block.angleAndReturns, count);
    ::append(*_classAndRed, block.classAndRed, count);
    ::append(*_greenAndBlue, block.greenAndBlue, count);
}

std::vector<uint32_t> PointArrays::places() const
{
    std::vector<uint32_t> places;
    places.reserve(_positions->size());
    for (const Run& run : _runs)
        for (int64_t i = 0; i < run.count; ++i)
            places.push_back(static_cast<uint32_t>(run.place + i));
    return places;
}

void PointArrays::setClasses(const UnwrittenClasses::Cell& edited)
{
    const std::vector<uint8_t>& classes = *edited.current;
    const std::vector<uint8_t>& written = *edited.written;
    int* element = _classAndRed->empty() ? nullptr : &_classAndRed->front();
    for (const Run& run : _runs)
        for (size_t place = static_cast<size_t>(run.place), end = place + static_cast<size_t>(run.count);
             place < end; ++place, ++element) {
            if (place >= classes.size() || classes[place] == written[place]) continue;
            *element = PointAttributes::withClass(*element, classes[place]);
        }
}

void PointArrays::setMarks(const PointMarks& marks)
{
    size_t element = 0;
    for (const Run& run : _runs) {
        if (run.count == 0) continue;
        int64_t record = 0;
        std::memcpy(&record, (*_indices)[element].ptr(), sizeof record);
        marks.put(static_cast<uint64_t>(record), static_cast<size_t>(run.count), &(*_classAndRed)[element],
                  &(*_userData)[element]);
        element += static_cast<size_t>(run.count);
    }
}

void PointArrays::attachTo(CellGeometry& geometry) const
{
    geometry.setPointBounds(_bounds);
    geometry.setVertexArray(_positions);
    geometry.setVertexAttribArray(9, _sourceAndIntensity, osg::Array::BIND_PER_VERTEX);
    geometry.setVertexAttribArray(10, _angleAndReturns, osg::Array::BIND_PER_VERTEX);
    geometry.setVertexAttribArray(11, _gpsTimes, osg::Array::BIND_PER_VERTEX);
    geometry.setVertexAttribArray(12, _classAndRed, osg::Array::BIND_PER_VERTEX);
    geometry.setVertexAttribArray(13, _greenAndBlue, osg::Array::BIND_PER_VERTEX);
    geometry.setVertexAttribArray(7, _userData, osg::Array::BIND_PER_VERTEX);
    geometry.setUserData(_indices);
}

/// Reads the points of the cell's segments, and their normals where `normals` is given (one element a
/// declared point, zero at first). False where bytes turned out to be unreadable while they were read: the
/// points are wrong, and another time those bytes are left out.
bool readSegments(const CellData& cell, OctreeInfo& octree, PointArrays& points, osg::Vec4Array* normals)
{
    int64_t next = 0;
    for (const VelBrx::Segment& segment : cell.record.segments) {
        const int64_t place = next;
        const int64_t count = std::min<int64_t>(segment.count, cell.record.pointCount - place);
        if (count <= 0) continue;
        next += count;
        const MappedElements records(octree.pointFile.get(), octree.pointDataStart, kRecordSize,
                                     segment.first, count);
        if (!records.bytes()) continue;
        const int64_t begin = points.count();
        points.add(records.bytes(), count, segment.first, place);
        if (!records.wereRead()) return false;

        if (!normals) continue;
        const MappedElements vectors(octree.normalsFile.get(), kNormalSize, kNormalSize, segment.first,
                                     count);
        if (vectors.bytes())
            std::memcpy((*normals)[static_cast<size_t>(begin)].ptr(), vectors.bytes(),
                        static_cast<size_t>(count * kNormalSize));
        if (!vectors.wereRead()) return false;
    }
    return true;
}

osg::ref_ptr<osg::Geometry> makeGeometry(const CellData& cell, OctreeInfo& octree)
{
    const int64_t declared = cell.record.pointCount;
    osg::ref_ptr<osg::Vec4Array> normals;
    if (octree.normalsFile && octree.normalsFile->isValid())
        normals = new osg::Vec4Array(osg::Array::BIND_PER_VERTEX, static_cast<unsigned>(declared));
    // Before the records: classes that are written to the store while it is read are either here or there.
    const UnwrittenClasses::Cell edited = UnwrittenClasses::instance().find(cell.identifier);
    std::optional<PointArrays> read;
    while (!readSegments(cell, octree, read.emplace(octree, declared), normals))
        if (normals) std::fill(normals->begin(), normals->end(), osg::Vec4());
    PointArrays& points = *read;
    if (edited.current) points.setClasses(edited);
    if (const auto marks = std::atomic_load(&octree.marks)) points.setMarks(*marks);

    osg::ref_ptr<CellGeometry> geometry = new CellGeometry;
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseDisplayList(false);
    points.attachTo(*geometry);
    if (normals) geometry->setVertexAttribArray(8, normals, osg::Array::BIND_PER_VERTEX);
    const GLsizei declaredCount = static_cast<GLsizei>(declared);
    if (points.count() == declared)
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, declaredCount));
    else {
        geometry->addPrimitiveSet(new HeldPoints(declaredCount, static_cast<GLsizei>(points.count())));
        geometry->setPlaces(points.places(), cell.record.pointCount);
    }
    geometry->setDataVariance(osg::Object::STATIC);
    geometry->setDrawCallback(new ModelMatrix);
    geometry->setUserValue("UUID", cell.identifier);
    geometry->getVertexArray()->setUserValue("UUID", cell.identifier);
    geometry->stampArrays();
    return geometry;
}

/// How far points of the cell and of those above it are apart: as on the sampling grid where finer cells
/// follow. A cell that none follow has all points that are left: then their number on the two longer sides of
/// their bounds tells, with those of the grid above, which has half the divisions.
float pointSpacing(const CellData& cell, const osg::BoundingBox& points)
{
    const bool isRoot = !cell.parent.valid();
    const double grid = VelBrx::pointSpacing(cell.record.resolutionLength);
    if (!cell.children.empty()) // a root's length is its edge
        return static_cast<float>(
            isRoot ? 2 * VelBrx::pointSpacing(cell.children.front()->record.resolutionLength) : grid);
    std::array<double, 3> sides = {points.xMax() - points.xMin(), points.yMax() - points.yMin(),
                                   points.zMax() - points.zMin()};
    std::sort(sides.begin(), sides.end());
    const double area = sides[1] * sides[2];
    const double above = isRoot ? 0 : area / (4 * grid * grid);
    return static_cast<float>(std::sqrt(area / (cell.record.pointCount + above)));
}

} // namespace

namespace VelOsgDBBrx {

osg::Node* LasReaderWriter::read(osg::ref_ptr<CellData> cell)
{
    if (!cell || cell->record.segments.empty() || cell->record.pointCount == 0) return nullptr;
    osg::ref_ptr<OctreeInfo> octree;
    if (!cell->octree.lock(octree)) return nullptr;

    const VelBrx::CellWithSegment& record = cell->record;
    const osg::Vec3d center =
        osg::Vec3d(record.center[0], record.center[1], record.center[2]) - octree->offset;
    const osg::Vec3d half(record.size[0] * 0.5, record.size[1] * 0.5, record.size[2] * 0.5);

    const osg::ref_ptr<CellLeaf::CellKey> key = new CellLeaf::CellKey(record.level, record.code);
    osg::ref_ptr<CellLeaf> leaf = new CellLeaf(*key, center - half, center + half);
    leaf->addDrawable(makeGeometry(*cell, *octree));
    leaf->setPointSpacing(pointSpacing(*cell, leaf->getBoundingBox())); // bounds that no frame waits for
    return leaf.release();
}

} // namespace VelOsgDBBrx

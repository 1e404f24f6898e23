#include <VelOsgDBBrx/LasReaderWriter.h>

#include "loading/CellData.h"
#include "loading/CellGeometry.h"
#include "loading/CellLeaf.h"
#include "loading/ModelMatrix.h"
#include "loading/UnwrittenClasses.h"

#include <osg/Geometry>
#include <osg/ValueObject>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>

namespace {

constexpr int64_t kRecordSize = 36;
constexpr int64_t kNormalSize = 16; ///< also the size of the normals file's header
constexpr int64_t kBlockSize =
    256; ///< records that stay in the first-level cache while every array reads them

constexpr int kHiddenBits = 0x000F0000;

template <typename T>
T load(const uint8_t* from)
{
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// Walks the results of a function of an index.
template <typename Element>
class ElementIterator
{
public:
    using iterator_category = std::random_access_iterator_tag;
    using reference = decltype(std::declval<const Element&>()(int64_t()));
    using value_type = reference;
    using difference_type = std::ptrdiff_t;
    using pointer = void;

    ElementIterator(const Element& element, int64_t index) : _element(&element), _index(index) {}

    reference operator*() const { return (*_element)(_index); }
    reference operator[](difference_type n) const { return (*_element)(_index + n); }
    ElementIterator& operator++() { return *this += 1; }
    ElementIterator& operator--() { return *this += -1; }
    ElementIterator& operator+=(difference_type n)
    {
        _index += n;
        return *this;
    }
    ElementIterator operator+(difference_type n) const { return ElementIterator(*_element, _index + n); }
    difference_type operator-(const ElementIterator& other) const { return _index - other._index; }
    bool operator==(const ElementIterator& other) const { return _index == other._index; }
    bool operator!=(const ElementIterator& other) const { return _index != other._index; }

private:
    const Element* _element;
    int64_t _index;
};

/// Appends element(0) to element(count - 1) to an array that has room for them. The memory is touched once:
/// resizing first would write it twice, and reading cells is bound by memory.
template <typename Array, typename Element>
void append(Array& array, int64_t count, const Element& element)
{
    array.insert(array.end(), ElementIterator<Element>(element, 0), ElementIterator<Element>(element, count));
}

/// The bytes of elements [first, first + count) of `size` bytes that begin at byte `start` of a file.
class MappedElements
{
public:
    MappedElements(VelBrx::File* file, int64_t start, int64_t size, int64_t first, int64_t count)
        : _file(file)
    {
        int64_t offset = 0;
        int64_t length = 0;
        const bool overflow = __builtin_mul_overflow(first, size, &offset) ||
                              __builtin_add_overflow(offset, start, &offset) ||
                              __builtin_mul_overflow(count, size, &length);
        if (_file && first >= 0 && !overflow) _bytes = _file->map(offset, length);
    }
    ~MappedElements()
    {
        if (_bytes) _file->unmap(_bytes);
    }
    MappedElements(const MappedElements&) = delete;
    MappedElements& operator=(const MappedElements&) = delete;

    const uint8_t* bytes() const { return static_cast<const uint8_t*>(_bytes); }

private:
    VelBrx::File* _file;
    void* _bytes = nullptr;
};

/// Global index of a point as the index array holds it: one 64-bit number in the two 32-bit halves.
osg::Vec2i packIndex(int64_t index)
{
    osg::Vec2i packed;
    static_assert(sizeof packed == sizeof index);
    std::memcpy(packed.ptr(), &index, sizeof index);
    return packed;
}

/// The arrays of one cell, filled together.
class PointArrays
{
public:
    PointArrays(const OctreeInfo& octree, int64_t capacity);

    int64_t count() const { return static_cast<int64_t>(_positions->size()); }

    /// Appends the points of `count` records; `firstIndex` is the global index of the first.
    void add(const uint8_t* records, int64_t count, int64_t firstIndex);

    /// Fills up to `count` points with ones that draw nothing, so that a draw of the declared count stays
    /// inside the arrays: they have no position, are marked hidden and stand for no record (index -1).
    void pad(int64_t count);

    /// Gives the points classes other than those of their records.
    void setClasses(const std::vector<uint8_t>& classes);

    void attachTo(osg::Geometry& geometry) const;

private:
    void addBlock(const uint8_t* records, int64_t count);

    const osg::Vec3d _scale;
    const osg::Vec3d _offset;
    osg::ref_ptr<osg::Vec3Array> _positions = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec2iArray> _indices = new osg::Vec2iArray;
    osg::ref_ptr<osg::FloatArray> _gpsTimes = new osg::FloatArray;
    osg::ref_ptr<osg::IntArray> _userData = new osg::IntArray;
    osg::ref_ptr<osg::IntArray> _sourceAndIntensity = new osg::IntArray;
    osg::ref_ptr<osg::IntArray> _angleAndReturns = new osg::IntArray;
    osg::ref_ptr<osg::IntArray> _classAndRed = new osg::IntArray;
    osg::ref_ptr<osg::IntArray> _greenAndBlue = new osg::IntArray;
};

PointArrays::PointArrays(const OctreeInfo& octree, int64_t capacity)
    : _scale(octree.scale), _offset(octree.offset)
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

void PointArrays::add(const uint8_t* records, int64_t count, int64_t firstIndex)
{
    append(*_indices, count, [=](int64_t i) { return packIndex(firstIndex + i); });
    for (int64_t begin = 0; begin < count; begin += kBlockSize)
        addBlock(records + begin * kRecordSize, std::min(kBlockSize, count - begin));
}

void PointArrays::addBlock(const uint8_t* records, int64_t count)
{
    const auto byte = [=](int64_t i, int field) { return records[i * kRecordSize + field]; };
    const auto word = [=](int64_t i, int field) { return load<uint16_t>(records + i * kRecordSize + field); };

    // Adding the offset and taking it off again rounds as file coordinates do.
    append(*_positions, count, [=, scale = _scale, offset = _offset](int64_t i) {
        const uint8_t* record = records + i * kRecordSize;
        return osg::Vec3f(
            static_cast<float>((load<int32_t>(record) * scale.x() + offset.x()) - offset.x()),
            static_cast<float>((load<int32_t>(record + 4) * scale.y() + offset.y()) - offset.y()),
            static_cast<float>((load<int32_t>(record + 8) * scale.z() + offset.z()) - offset.z()));
    });
    append(*_sourceAndIntensity, count, [=](int64_t i) {
        return static_cast<int>(static_cast<uint32_t>(word(i, 20)) << 16 | word(i, 12));
    });
    append(*_angleAndReturns, count, [=](int64_t i) {
        return static_cast<int>(static_cast<uint32_t>(word(i, 18)) << 16 | word(i, 14));
    });
    append(*_gpsTimes, count,
           [=](int64_t i) { return static_cast<float>(load<double>(records + i * kRecordSize + 22)); });
    append(*_classAndRed, count, [=](int64_t i) {
        return static_cast<int>(static_cast<uint32_t>(byte(i, 16)) << 24 | (byte(i, 15) & 15u) << 16 |
                                word(i, 30));
    });
    append(*_greenAndBlue, count, [=](int64_t i) {
        return static_cast<int>(static_cast<uint32_t>(word(i, 32)) << 16 | word(i, 34));
    });
    append(*_userData, count, [=](int64_t i) { return static_cast<int>(byte(i, 17)); });
}

void PointArrays::pad(int64_t count)
{
    if (count <= this->count()) return;
    const size_t size = static_cast<size_t>(count);
    constexpr float kNowhere = std::numeric_limits<float>::quiet_NaN();
    _positions->resize(size, osg::Vec3f(kNowhere, kNowhere, kNowhere));
    _indices->resize(size, packIndex(-1));
    _classAndRed->resize(size, kHiddenBits);
    _gpsTimes->resize(size);
    for (osg::IntArray* array :
         {_userData.get(), _sourceAndIntensity.get(), _angleAndReturns.get(), _greenAndBlue.get()})
        array->resize(size);
}

void PointArrays::setClasses(const std::vector<uint8_t>& classes)
{
    const size_t count = std::min<size_t>(_classAndRed->size(), classes.size());
    for (size_t i = 0; i < count; ++i)
        (*_classAndRed)[i] = static_cast<int>(static_cast<uint32_t>(classes[i]) << 24 |
                                              (static_cast<uint32_t>((*_classAndRed)[i]) & 0x00FFFFFFu));
}

void PointArrays::attachTo(osg::Geometry& geometry) const
{
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
/// declared point, zero at first).
void readSegments(const CellData& cell, OctreeInfo& octree, PointArrays& points, osg::Vec4Array* normals)
{
    const int64_t declared = cell.record.pointCount;
    for (const VelBrx::Segment& segment : cell.record.segments) {
        const int64_t begin = points.count();
        const int64_t count = std::min(segment.count, declared - begin);
        if (count <= 0) continue;
        const MappedElements records(octree.pointFile.get(), octree.pointDataStart, kRecordSize,
                                     segment.first, count);
        if (!records.bytes()) continue;
        points.add(records.bytes(), count, segment.first);

        if (!normals) continue;
        const MappedElements vectors(octree.normalsFile.get(), kNormalSize, kNormalSize, segment.first,
                                     count);
        if (vectors.bytes())
            std::memcpy((*normals)[static_cast<size_t>(begin)].ptr(), vectors.bytes(),
                        static_cast<size_t>(count * kNormalSize));
    }
}

osg::ref_ptr<osg::Geometry> makeGeometry(const CellData& cell, OctreeInfo& octree)
{
    const int64_t declared = cell.record.pointCount;
    osg::ref_ptr<osg::Vec4Array> normals;
    if (octree.normalsFile && octree.normalsFile->isValid())
        normals = new osg::Vec4Array(osg::Array::BIND_PER_VERTEX, static_cast<unsigned>(declared));
    // Before the records: classes that are written to the store while it is read are either here or there.
    const ClassesPtr edited = UnwrittenClasses::instance().current(cell.identifier);
    PointArrays points(octree, declared);
    readSegments(cell, octree, points, normals);
    if (edited && points.count() == declared) points.setClasses(*edited);
    points.pad(declared);

    static const osg::ref_ptr<ModelMatrix> modelMatrix = new ModelMatrix;
    osg::ref_ptr<CellGeometry> geometry = new CellGeometry;
    geometry->setUseVertexBufferObjects(true);
    geometry->setUseDisplayList(false);
    points.attachTo(*geometry);
    if (normals) geometry->setVertexAttribArray(8, normals, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, static_cast<GLsizei>(declared)));
    geometry->setDataVariance(osg::Object::STATIC);
    geometry->setDrawCallback(modelMatrix);
    geometry->setUserValue("UUID", cell.identifier);
    geometry->getVertexArray()->setUserValue("UUID", cell.identifier);
    geometry->stampArrays();
    return geometry;
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
    leaf->getBound(); // computed here, so that no frame waits for it
    return leaf.release();
}

} // namespace VelOsgDBBrx

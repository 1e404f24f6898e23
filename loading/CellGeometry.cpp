#include "loading/CellGeometry.h"

#include <osg/BufferObject>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/VertexArrayState>

#include <atomic>

void CellGeometry::editCategories(const CategoryEdit& edit)
{
    const VelThreads::Lock guard(_mutex);
    auto* array = dynamic_cast<osg::IntArray*>(getVertexAttribArray(kCategoryLocation));
    if (!array || !(_places.empty() ? edit(*array) : editWholeCell(*array, edit))) return;
    array->dirty();
}

void CellGeometry::editMarks(const MarkEdit& put)
{
    const VelThreads::Lock guard(_mutex);
    auto* const classes = dynamic_cast<osg::IntArray*>(getVertexAttribArray(kCategoryLocation));
    auto* const marked = dynamic_cast<osg::IntArray*>(getVertexAttribArray(kMarkLocation));
    if (!classes || !marked || classes->empty() || classes->size() != marked->size()) return;
    bool changed = false;
    if (_places.empty())
        changed = put(0, marked->size(), &classes->front(), &marked->front());
    else
        for (size_t i = 0; i < _places.size(); ++i)
            changed |= put(_places[i], 1, &(*classes)[i], &(*marked)[i]);
    if (changed) marked->dirty();
}

bool CellGeometry::editWholeCell(osg::IntArray& held, const CategoryEdit& edit) const
{
    const osg::ref_ptr<osg::IntArray> whole = new osg::IntArray(_cellPoints);
    for (size_t i = 0; i < _places.size(); ++i)
        (*whole)[_places[i]] = held[i];
    if (!edit(*whole)) return false;
    for (size_t i = 0; i < _places.size(); ++i)
        held[i] = (*whole)[_places[i]];
    return true;
}

void CellGeometry::setPlaces(std::vector<uint32_t> places, uint32_t cellPoints)
{
    _places = std::move(places);
    _cellPoints = cellPoints;
}

uint32_t CellGeometry::cellPoints() const
{
    if (!_places.empty()) return _cellPoints;
    return getVertexArray() ? getVertexArray()->getNumElements() : 0;
}

void CellGeometry::stampArrays() const
{
    // Steps of the golden ratio keep the counts apart for longest: of two arrays made within m arrays of each
    // other, the older one reaches the count of the younger one after 2^32 / (2.24 m) edits at the earliest.
    constexpr unsigned kGoldenRatio = 0x9E3779B1u; // of 2^32, odd
    static std::atomic<unsigned> next{0};
    ArrayList arrays;
    getArrayList(arrays);
    for (const osg::ref_ptr<osg::Array>& array : arrays)
        array->setModifiedCount(next.fetch_add(kGoldenRatio, std::memory_order_relaxed));
}

void CellGeometry::drawImplementation(osg::RenderInfo& renderInfo) const
{
    const VelThreads::Lock guard(_mutex);
    osg::State& state = *renderInfo.getState();
    const osg::BufferObject* buffer = getVertexArray() ? getVertexArray()->getBufferObject() : nullptr;
    const osg::GLBufferObject* glBuffer = buffer ? buffer->getGLBufferObject(state.getContextID()) : nullptr;
    // A vertex array object keeps the arrays as they were when it was recorded; arrays edited since then have
    // to be given to it again.
    if (!glBuffer || glBuffer->isDirty()) state.getCurrentVertexArrayState()->setRequiresSetArrays(true);
    osg::Geometry::drawImplementation(renderInfo);
}

void CellGeometry::compileGLObjects(osg::RenderInfo& renderInfo) const
{
    const VelThreads::Lock guard(_mutex);
    osg::Geometry::compileGLObjects(renderInfo);
}

void CellGeometry::releaseGLObjects(osg::State* state) const
{
    const VelThreads::Lock guard(_mutex);
    osg::Geometry::releaseGLObjects(state);
    stampArrays(); // the arrays will get other buffers
}

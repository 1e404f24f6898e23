#include "render/PointSpacing.h"

#include "lod/PixelScale.h"
#include "render/StorageBuffer.h"

#include <VelOsgDBBrx/CellData.h>

#include <osg/Viewport>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

namespace {

constexpr char kSizing[] = "pointSizing"; ///< factor, smallest, largest; factor 0: fixed

/// The innermost setting of what is applied; factor 0 where there is none.
osg::Vec3f sizingIn(const osgUtil::StateGraph& applied)
{
    osg::Vec3f sizing;
    for (const osgUtil::StateGraph* graph = &applied; graph; graph = graph->_parent)
        if (const osg::StateSet* const state = graph->getStateSet())
            if (const osg::Uniform* const uniform = state->getUniform(kSizing)) {
                uniform->get(sizing);
                break;
            }
    return sizing;
}

constexpr float kNotLoaded = -1;

/// Cells of one level: code and spacing.
using Level = std::vector<std::pair<uint64_t, float>>;

/// Sorted by code, each once: of two entries the one that is loaded.
void tidy(Level& level)
{
    std::sort(level.begin(), level.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first < b.first : a.second > b.second;
    });
    const auto isSame = [](const auto& a, const auto& b) { return a.first == b.first; };
    level.erase(std::unique(level.begin(), level.end(), isSame), level.end());
}

/// The loaded cells and those above them, from the root on.
std::vector<Level> loadedLevels(const PointCloudLOD::LevelMap& leaves)
{
    std::vector<Level> levels(1);
    for (const auto& [number, cells] : leaves) {
        if (cells.empty()) continue;
        levels.resize(std::max(levels.size(), static_cast<size_t>(number) + 1));
        for (const auto& [leaf, reference] : cells)
            levels[static_cast<size_t>(number)].emplace_back(leaf->getCode(), leaf->pointSpacing());
    }
    for (size_t number = levels.size(); number-- > 0;) {
        tidy(levels[number]);
        if (number == 0) break;
        for (const auto& cell : levels[number])
            levels[number - 1].emplace_back(cell.first >> 3, kNotLoaded);
    }
    return levels;
}

/// The tree as shaders read it: of each cell the number of its first child with a bit for each octant that
/// has one, and its spacing. A cell that is not loaded has the spacing of the one above it.
osg::ref_ptr<osg::UIntArray> makeTree(const osg::Vec4f& cube, std::vector<Level> levels)
{
    const auto bitsOf = [](float value) {
        uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return bits;
    };
    osg::ref_ptr<osg::UIntArray> tree = new osg::UIntArray;
    for (int i = 0; i < 4; ++i)
        tree->push_back(bitsOf(cube[i]));
    size_t next = 0; // the first cell of the level below
    for (size_t number = 0; number < levels.size(); ++number) {
        next += levels[number].size();
        Level none;
        Level& below = number + 1 < levels.size() ? levels[number + 1] : none;
        auto child = below.begin();
        for (auto& [code, spacing] : levels[number]) {
            if (spacing == kNotLoaded) spacing = 0; // the root
            auto children = static_cast<uint32_t>(next + static_cast<size_t>(child - below.begin())) << 8;
            for (; child != below.end() && child->first >> 3 == code; ++child) {
                children |= 1u << (child->first & 7);
                if (child->second == kNotLoaded) child->second = spacing;
            }
            tree->push_back(children);
            tree->push_back(bitsOf(spacing));
        }
    }
    return tree;
}

/// Smallest corner and edge of the octree's cube, in local coordinates.
osg::Vec4f cubeOf(const OctreeInfo& octree)
{
    const VelBrx::CellWithSegment& root = octree.root->record;
    const double edge = root.size[0];
    osg::Vec4d cube(0, 0, 0, edge);
    for (int axis = 0; axis < 3; ++axis)
        cube[axis] = root.center[axis] - octree.offset[axis] - edge / 2;
    return osg::Vec4f(cube);
}

} // namespace

void setSpacingSizes(osg::StateSet& state, double factor, int smallest, int largest)
{
    const osg::Vec3d sizing(factor, smallest, largest);
    state.addUniform(new osg::Uniform(kSizing, osg::Vec3f(sizing)));
}

osg::ref_ptr<const osg::StateSet> PointSpacing::state(osgUtil::CullVisitor& cull, const PointCloudLOD& lod)
{
    const osg::Vec3f sizing = sizingIn(*cull.getCurrentStateGraph());
    const osg::Viewport* const viewport = cull.getViewport();
    if (!(sizing.x() > 0) || !viewport || !lod.getOctree()->root) return nullptr;
    const osg::Matrixd localToClip = *cull.getModelViewMatrix() * *cull.getProjectionMatrix();
    const double pixels = sizing.x() * pixelsOfUnit(localToClip, viewport->width(), viewport->height());
    const int deepest = lod.deepestDrawn(cull).value_or(std::numeric_limits<uint8_t>::max());
    const osg::Vec4f sizes(static_cast<float>(pixels), sizing.y(), sizing.z(), static_cast<float>(deepest));

    const VelThreads::Lock lock(_mutex);
    follow(lod);
    if (!_state || _sizes != sizes) {
        _sizes = sizes;
        _state = new osg::StateSet(*_tree);
        _state->addUniform(new osg::Uniform("spacingSizes", sizes));
    }
    return _state;
}

void PointSpacing::follow(const PointCloudLOD& lod)
{
    if (_isRead && _changes == lod.changes()) return;
    _isRead = true;
    _changes = lod.changes();
    _state = nullptr;
    _tree = new osg::StateSet;
    _tree->setDefine("SIZED_BY_SPACING");
    bindStorageBuffer(*_tree, StorageBuffer::PointSpacing,
                      makeTree(cubeOf(*lod.getOctree()), loadedLevels(lod.getLeavesByLevel())));
}

void PointSpacing::resizeGLObjectBuffers(unsigned maxSize)
{
    const VelThreads::Lock lock(_mutex);
    if (_tree) _tree->resizeGLObjectBuffers(maxSize);
}

void PointSpacing::releaseGLObjects(osg::State* state)
{
    const VelThreads::Lock lock(_mutex);
    if (_tree) _tree->releaseGLObjects(state);
}

#include <VelOsgDBBrx/SelectSegmentStack.h>

#include "render/FindSegmentMartixVisitor.h"

#include <VelThreads/Mutex.h>

#include <osg/Array>
#include <osg/BufferIndexBinding>
#include <osg/BufferObject>
#include <osg/StateSet>
#include <osg/Uniform>
#include <osgViewer/Viewer>

#include <array>
#include <map>

namespace VelOsgDBBrx {

namespace {

constexpr int kBufferCount = 5;
using Bindings = std::array<osg::ref_ptr<osg::ShaderStorageBufferBinding>, kBufferCount>;

/// The bindings last set for each node, so that whichever stack of a node empties it takes away what is
/// there.
class BindingRegistry
{
public:
    static BindingRegistry& instance()
    {
        static BindingRegistry registry;
        return registry;
    }

    void store(osg::Node* node, const Bindings& bindings)
    {
        const VelThreads::Lock guard(_mutex);
        dropDeadNodes();
        _entries[node] = {node, bindings};
    }

    /// Takes the node's entry out; null bindings when there is none.
    Bindings take(osg::Node* node)
    {
        const VelThreads::Lock guard(_mutex);
        dropDeadNodes();
        const auto found = _entries.find(node);
        if (found == _entries.end()) return {};
        const Bindings bindings = found->second.bindings;
        _entries.erase(found);
        return bindings;
    }

private:
    struct Entry
    {
        osg::observer_ptr<osg::Node> node;
        Bindings bindings;
    };

    /// A new node may come to the address of a dead one.
    void dropDeadNodes() VEL_REQUIRES(_mutex)
    {
        for (auto entry = _entries.begin(); entry != _entries.end();)
            entry = entry->second.node.valid() ? std::next(entry) : _entries.erase(entry);
    }

    VelThreads::Mutex _mutex;
    std::map<osg::Node*, Entry> _entries VEL_GUARDED_BY(_mutex);
};

bool isInside(const std::vector<osg::Vec2d>& polygon, double x, double y)
{
    bool odd = false;
    for (size_t i = 0, j = polygon.size() - 1; i < polygon.size(); j = i++) {
        const osg::Vec2d& a = polygon[i];
        const osg::Vec2d& b = polygon[j];
        if ((a.y() > y) != (b.y() > y) && x < (b.x() - a.x()) * (y - a.y()) / (b.y() - a.y()) + a.x())
            odd = !odd;
    }
    return odd;
}

template <class Array>
osg::ref_ptr<osg::ShaderStorageBufferBinding> bind(int index, Array& array)
{
    array.setBufferObject(new osg::ShaderStorageBufferObject);
    return new osg::ShaderStorageBufferBinding(index, &array, 0, array.getTotalDataSize());
}

} // namespace

/// The content of the five shader storage buffers.
class SelectSegmentStack::Buffers
{
public:
    /// Appends a group. `isSelection` false: a segment, which hides what it selects when `cullInside`.
    void append(const std::list<Entry>& entries, bool isSelection, bool cullInside)
    {
        for (const Entry& entry : entries) {
            for (int i = 0; i < 4; ++i)
                _mvps->push_back(static_cast<float>(entry.mvp(i, 3)));
            for (int i = 0; i < 16; ++i)
                _mvpws->push_back(static_cast<float>(entry.mvpw.ptr()[i]));
            for (const osg::Vec2d& vertex : entry.polygon)
                for (const double c : {vertex.x(), vertex.y()})
                    _polygons->push_back(static_cast<float>(c));
            appendRecord(static_cast<unsigned int>(entry.polygon.size()), entry.inside);
        }
        _gtypes->push_back(isSelection ? 1 : 0);
        _gtypes->push_back(cullInside ? 1 : 0);
        ++_group;
    }

    Bindings bindings()
    {
        // A buffer cannot be empty: a polygon without vertices, which contains nothing, keeps the place.
        if (_records->empty()) {
            _mvps->resize(4);
            _mvpws->resize(16);
            appendRecord(0, false);
        }
        if (_polygons->empty()) _polygons->resize(2);
        return {bind(0, *_mvps), bind(1, *_mvpws), bind(2, *_polygons), bind(3, *_records),
                bind(4, *_gtypes)};
    }

private:
    void appendRecord(unsigned int vertices, bool inside)
    {
        _records->push_back(vertices);
        _records->push_back(inside ? 1 : 0);
        _records->push_back(_group);
    }

    osg::ref_ptr<osg::FloatArray> _mvps = new osg::FloatArray;
    osg::ref_ptr<osg::FloatArray> _mvpws = new osg::FloatArray;
    osg::ref_ptr<osg::FloatArray> _polygons = new osg::FloatArray;
    osg::ref_ptr<osg::UIntArray> _records = new osg::UIntArray;
    osg::ref_ptr<osg::UIntArray> _gtypes = new osg::UIntArray;
    unsigned int _group = 0; ///< the group being appended
};

SelectSegmentStack::SelectSegmentStack(osgViewer::Viewer* viewer, osg::Node* node)
    : _clipNode(node), _bufferNode(node), _camera(viewer ? viewer->getCamera() : nullptr)
{
    // Lets no frame be drawn while the state set changes.
    if (node) node->getOrCreateStateSet()->setDataVariance(osg::Object::DYNAMIC);
}

SelectSegmentStack::SelectSegmentStack(osgViewer::View& view, osg::Node* node)
    : SelectSegmentStack(static_cast<osgViewer::Viewer*>(nullptr), node)
{
    _camera = view.getCamera();
}

SelectSegmentStack::~SelectSegmentStack() = default;

bool SelectSegmentStack::nodesAlive() const
{
    return _clipNode.valid() && _bufferNode.valid();
}

bool SelectSegmentStack::append(std::list<Entry>& entries, const std::vector<osg::Vec2d>& polygon,
                                bool inside) const
{
    osg::ref_ptr<osg::Camera> camera;
    if (!nodesAlive() || !_camera.lock(camera) || !camera->getViewport()) return false;
    FindSegmentMartixVisitor visitor(*camera);
    _bufferNode->accept(visitor);
    entries.push_back({inside, visitor.getMvp(), visitor.getMvpw(), polygon});
    return true;
}

std::vector<ScreenPolygon> SelectSegmentStack::inWorld(const std::list<Entry>& entries) const
{
    if (entries.empty()) return {};
    osg::ref_ptr<osg::Camera> camera;
    if (!_camera.lock(camera)) camera = new osg::Camera;
    FindSegmentMartixVisitor visitor(*camera);
    _bufferNode->accept(visitor);
    const osg::Matrixd worldToLocal = osg::Matrixd::inverse(visitor.localToWorld());
    std::vector<ScreenPolygon> polygons;
    for (const Entry& entry : entries)
        polygons.push_back({entry.polygon, worldToLocal * entry.mvpw, entry.inside});
    return polygons;
}

std::vector<ScreenPolygon> SelectSegmentStack::getSelection() const
{
    return inWorld(_selection);
}

std::vector<ScreenSegment> SelectSegmentStack::getSegments() const
{
    std::vector<ScreenSegment> segments;
    for (const Group& group : _segments)
        segments.push_back({group.cullInside, inWorld(group.entries)});
    return segments;
}

void SelectSegmentStack::selectPushAndApply(std::vector<osg::Vec2d>& polygon, bool inside)
{
    if (!append(_selection, polygon, inside)) return;
    _history.push_back(Operation::SELECT_PUSH);
    apply();
}

void SelectSegmentStack::selectPopAndApply()
{
    if (_selection.empty() || !nodesAlive()) return;
    _selection.pop_back();
    apply();
}

void SelectSegmentStack::selectClearAndApply()
{
    _selection.clear();
    apply();
}

void SelectSegmentStack::segmentPushAndApply(std::vector<osg::Vec2d>& polygon, bool flag)
{
    Group group{flag, {}};
    if (!append(group.entries, polygon, flag)) return;
    _segments.push_back(std::move(group));
    _history.push_back(Operation::SEGMENT_PUSH);
    apply();
}

void SelectSegmentStack::segmentPopAndApply()
{
    if (_segments.empty() || !nodesAlive()) return;
    _segments.pop_back();
    apply();
}

void SelectSegmentStack::segmentClearAndApply()
{
    _segments.clear();
    apply();
}

void SelectSegmentStack::selectConvertSegment(bool cullInside)
{
    _segments.push_back({cullInside, std::move(_selection)});
    _selection.clear();
    _history.push_back(Operation::SELECT_CONVERT);
    apply();
}

void SelectSegmentStack::selectConvertPopAndApply()
{
    if (_segments.empty()) return;
    unconvert();
    apply();
}

void SelectSegmentStack::unconvert()
{
    _selection = std::move(_segments.back().entries);
    _segments.pop_back();
}

void SelectSegmentStack::pop()
{
    if (!nodesAlive() || _history.empty()) return;
    // The lists can be shorter than the history: pops and clears of their own leave it as it is.
    const Operation last = _history.back();
    if (last == Operation::SEGMENT_PUSH && !_segments.empty()) _segments.pop_back();
    if (last == Operation::SELECT_PUSH && !_selection.empty()) _selection.pop_back();
    if (last == Operation::SELECT_CONVERT && !_segments.empty()) unconvert();
    _history.pop_back();
    apply();
}

void SelectSegmentStack::clearAndApply()
{
    _selection.clear();
    _segments.clear();
    _history.clear();
    switchOff();
}

void SelectSegmentStack::apply()
{
    if (!_clipNode.valid()) return;
    if (_selection.empty() && _segments.empty()) {
        switchOff();
        return;
    }
    Buffers buffers;
    for (const Group& group : _segments)
        buffers.append(group.entries, false, group.cullInside);
    buffers.append(_selection, true, false);

    const Bindings bindings = buffers.bindings();
    osg::StateSet* stateSet = _bufferNode->getOrCreateStateSet();
    for (const auto& binding : bindings)
        stateSet->setAttributeAndModes(binding, osg::StateAttribute::ON);
    BindingRegistry::instance().store(_bufferNode, bindings);
    _clipNode->getOrCreateStateSet()->addUniform(new osg::Uniform("activeClip", true),
                                                 osg::StateAttribute::ON);
}

void SelectSegmentStack::switchOff()
{
    osg::ref_ptr<osg::Node> node;
    if (!_clipNode.lock(node)) return;
    osg::StateSet* stateSet = node->getOrCreateStateSet();
    for (const auto& binding : BindingRegistry::instance().take(node)) {
        if (!binding) continue;
        binding->setBufferData(nullptr);
        stateSet->removeAttribute(binding);
    }
    // Without its buffers the test would read what another cloud has bound.
    stateSet->addUniform(new osg::Uniform("activeClip", false), osg::StateAttribute::ON);
}

bool SelectSegmentStack::isSelected(const std::list<Entry>& entries, const osg::Vec3d& p)
{
    bool selected = false;
    for (const Entry& entry : entries) {
        const osg::Vec4d clip = osg::Vec4d(p, 1) * entry.mvp;
        if (clip.w() < 0) continue;
        const osg::Vec3d window = p * entry.mvpw;
        if (isInside(entry.polygon, window.x(), window.y())) selected = entry.inside;
    }
    return selected;
}

bool SelectSegmentStack::pointIsSelect(osg::Vec3d& p)
{
    return isSelected(_selection, p);
}

bool SelectSegmentStack::pointIsVisible(osg::Vec3d& p)
{
    for (const Group& group : _segments)
        if (isSelected(group.entries, p) == group.cullInside) return false;
    return true;
}

} // namespace VelOsgDBBrx

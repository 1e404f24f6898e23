#include "viewer/scene/Scene.h"

#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/scene/HomeBounds.h"

#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/OpenCloud.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iterator>

using VelBrx::Status;
using VelOsgDBBrx::PointCloudHelper;

namespace {

void widen(VelBrx::AttributeRange& all, const VelBrx::AttributeRange& part)
{
    all.min = std::min(all.min, part.min);
    all.low = std::min(all.low, part.low);
    all.high = std::max(all.high, part.high);
    all.max = std::max(all.max, part.max);
}

template <class Counts>
void addUp(Counts& all, const Counts& part)
{
    std::transform(all.begin(), all.end(), part.begin(), all.begin(), std::plus<>());
}

/// Takes the points of another store into the statistics.
void merge(VelBrx::StoreStatistics& all, const VelBrx::StoreStatistics& part)
{
    widen(all.elevation, part.elevation);
    widen(all.intensity, part.intensity);
    widen(all.gpsTime, part.gpsTime);
    all.maxColor = std::max(all.maxColor, part.maxColor);
    addUp(all.pointsByClass, part.pointsByClass);
    addUp(all.pointsByReturn, part.pointsByReturn);
    addUp(all.pointsByNumberOfReturns, part.pointsByNumberOfReturns);
    std::vector<uint16_t> sources;
    std::set_union(all.pointSources.begin(), all.pointSources.end(), part.pointSources.begin(),
                   part.pointSources.end(), std::back_inserter(sources));
    all.pointSources = sources;
}

} // namespace

Scene::Scene()
{
    // Keys change its state while draw threads run.
    _root->getOrCreateStateSet()->setDataVariance(osg::Object::DYNAMIC);
}

Status Scene::load(const std::vector<std::string>& stores, const Options& options)
{
    for (const std::string& store : stores) {
        if (const Status status = loadCloud(store, options.normals); !status) return status;
    }
    if (options.mode == ColorMode::RGB) tellColorless();
    VelBrx::StoreStatistics statistics = _clouds.front().statistics;
    std::for_each(_clouds.begin() + 1, _clouds.end(),
                  [&](const Cloud& cloud) { merge(statistics, cloud.statistics); });
    _coloring = Coloring(statistics, options.color);
    setColorMode(options.mode, options.changedBy);
    setPointSize(options.pointSize > 0 ? options.pointSize : VelOsgDBBrx::DefaultDisplay::kPointSize);
    setEyeDomeLighting(options.edl);
    setShading(options.shading);
    setLight(options.light);
    if (const std::string text = remark(); !text.empty() && options.mode != ColorMode::RGB)
        std::fprintf(stderr, "brxview: %s\n", text.c_str());
    return Status();
}

/// One line, however many stores are meant.
void Scene::tellColorless() const
{
    const auto isColorless = [](const Cloud& cloud) { return cloud.statistics.maxColor == 0; };
    const auto first = std::find_if(_clouds.begin(), _clouds.end(), isColorless);
    if (first == _clouds.end()) return;
    const auto others = std::count_if(first + 1, _clouds.end(), isColorless);
    const std::string more = others > 0 ? " (and " + std::to_string(others) + " more)" : std::string();
    std::fprintf(stderr, "brxview: %s%s has no colours, so its points are black; see --mode\n",
                 first->store.c_str(), more.c_str());
}

const Scene::Cloud* Scene::findShown(const VelBrx::FileIdentity& file) const
{
    const auto shown = std::find_if(_clouds.begin(), _clouds.end(), [&](const Cloud& cloud) {
        return cloud.node->getOctree()->pointFile->identity() == file;
    });
    return shown == _clouds.end() ? nullptr : &*shown;
}

Status Scene::loadCloud(const std::string& store, const std::string& normals)
{
    VelOsgDBBrx::OpenOptions how;
    if (!normals.empty()) how.normals = normals;
    VelOsgDBBrx::OpenedCloud opened;
    if (Status status = VelOsgDBBrx::openCloud(store, how, opened); !status) return status;
    if (!opened.normals && how.normals) return opened.normals;
    if (!opened.normals) {
        std::fprintf(stderr, "brxview: %s; the points are shown without normals\n",
                     opened.normals.message().c_str());
    }
    if (const Cloud* const shown = findShown(opened.cloud->getOctree()->pointFile->identity())) {
        std::fprintf(stderr, "brxview: %s: is the same file as %s, which is shown\n", store.c_str(),
                     shown->store.c_str());
        return Status();
    }
    const VelBrx::BrxHeader& header = opened.header;
    const osg::BoundingBoxd bounds(header.min[0], header.min[1], header.min[2], header.max[0], header.max[1],
                                   header.max[2]);
    _bounds.expandBy(bounds);
    _boundsOfMost.expandBy(
        boundsOfMost(bounds, bulkOfPoints(*opened.cloud->getOctree(), opened.statistics.elevation)));
    _root->addChild(opened.node);
    _clouds.push_back({store, opened.cloud, opened.statistics});
    PointCloudHelper::setPointCloudId(opened.cloud, _clouds.size());
    return Status();
}

void Scene::noteClass(uint8_t code)
{
    _coloring.addClass(code);
    ++_legendRevision;
}

std::vector<VelOsgDBBrx::IPointCloud*> Scene::nodes() const
{
    std::vector<VelOsgDBBrx::IPointCloud*> nodes;
    for (const Cloud& cloud : _clouds)
        nodes.push_back(cloud.node);
    return nodes;
}

void Scene::setColorMode(ColorMode mode, ChangedBy changedBy)
{
    if (_mode == ColorMode::CHANGED && mode != _mode) _changed.end(nodes());
    _mode = mode;
    _changedBy = changedBy;
    ++_legendRevision;
    if (mode == ColorMode::CHANGED)
        (void)_changed.apply(nodes(), changedBy); // the legend says why not
    else
        for (const Cloud& cloud : _clouds)
            _coloring.apply(cloud.node, modeOf(cloud));
}

void Scene::followEdits()
{
    if (_mode == ColorMode::CHANGED) setColorMode(_mode, _changedBy);
}

void Scene::setClassTable(const VelBrx::ClassTable& table)
{
    ::setClassTable(table);
    setColorMode(_mode, _changedBy);
}

ColorMode Scene::modeOf(const Cloud& cloud) const
{
    return _mode == ColorMode::AUTOMATIC ? Coloring::automatic(cloud.statistics) : _mode;
}

Legend Scene::legend() const
{
    if (_mode == ColorMode::CHANGED) return _changed.legend();
    for (const Cloud& cloud : _clouds) {
        const Legend legend = _coloring.legend(modeOf(cloud));
        if (!legend.title.empty()) return legend;
    }
    return Legend();
}

std::string Scene::remark() const
{
    const Legend shown = legend();
    return shown.remark.empty() ? std::string() : shown.title + ": " + shown.remark;
}

void Scene::setShading(const EyeDomeShading& shading)
{
    _shading.strength = std::clamp(shading.strength, 0.1, kStrongestEdl);
    _shading.radius = std::clamp(shading.radius, 0.1, kWidestEdl);
    PointCloudHelper::setBalancedEyeDomeLighting(_root, static_cast<float>(_shading.strength),
                                                 static_cast<float>(_shading.radius));
}

void Scene::setLight(const NormalLight& light)
{
    _light = light;
    for (const Cloud& cloud : _clouds)
        applyLight(*cloud.node, light);
}

void Scene::setEyeDomeLighting(bool enable)
{
    _edl = enable;
    VelOsgDBBrx::ShaderHelper::switchEDLShader(_root, enable);
}

void Scene::setShownClasses(const std::bitset<256>& classes)
{
    _shownClasses = classes;
    PointCloudHelper::setShownClasses(_root, classes);
}

void Scene::setClipPlanes(const std::vector<osg::Vec4d>& planes)
{
    _clipPlanes = planes;
    PointCloudHelper::setClipPlane(_root, planes);
}

void Scene::setPointSize(int pixels)
{
    _pointSize = std::clamp(pixels, 1, kLargestPointSize);
    PointCloudHelper::setPointSize(_root, _pointSize);
}

std::vector<std::string> Scene::describe(const VelOsgDBBrx::PickedPoint& point) const
{
    if (point.cloudId < 1 || point.cloudId > _clouds.size()) return {};
    const Cloud& cloud = _clouds[point.cloudId - 1];
    OctreeInfo& octree = *cloud.node->getOctree();
    const auto stored = VelOsgDBBrx::storedPoint(point, octree);
    if (!stored) return {};
    std::string position;
    for (int axis = 0; axis < 3; ++axis)
        position += (axis ? "  " : "") + coordinate(stored->position[axis], octree.scale[axis]);
    char time[512];
    std::snprintf(time, sizeof time, "GPS time %.6f s", stored->gpsTime);
    char attributes[128];
    std::snprintf(attributes, sizeof attributes, "class %s, intensity %u, return %u of %u, source %u",
                  classText(stored->classCode).c_str(), unsigned(stored->intensity),
                  unsigned(stored->returnNumber), unsigned(stored->numberOfReturns),
                  unsigned(stored->pointSource));
    return {position, time, attributes, "cloud " + std::to_string(point.cloudId) + ", " + cloud.store};
}

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
#include <set>

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

Status openStore(const std::string& path, const std::string& normals, OpenedStore& opened, std::string& note)
{
    VelOsgDBBrx::OpenOptions how;
    if (!normals.empty()) how.normals = normals;
    VelOsgDBBrx::OpenedCloud cloud;
    if (Status status = VelOsgDBBrx::openCloud(path, how, cloud); !status) return status;
    if (!cloud.normals && how.normals) return cloud.normals;
    if (!cloud.normals) note = cloud.normals.message() + "; the points are shown without normals";
    const VelBrx::BrxHeader& header = cloud.header;
    opened.path = path;
    opened.bounds.set(header.min[0], header.min[1], header.min[2], header.max[0], header.max[1],
                      header.max[2]);
    opened.bulk = bulkOfPoints(cloud);
    if (const Status known = CoordinateSystem::read(header.projection, opened.system); !known)
        note += (note.empty() ? "" : "; ") + path + ": " + known.message();
    opened.cloud = std::move(cloud);
    return Status();
}

Scene::Scene()
{
    // Keys change its state while draw threads run.
    _root->getOrCreateStateSet()->setDataVariance(osg::Object::DYNAMIC);
    setLook(Options());
}

void Scene::setLook(const Options& options)
{
    _singleColor = options.color;
    _drawing.budget = options.budget;
    _drawing.memory = options.memory;
    followClouds();
    setColorMode(options.mode, options.changedBy);
    setPointSize(options.pointSize > 0 ? options.pointSize : VelOsgDBBrx::DefaultDisplay::kPointSize);
    setPointSizing(options.pointSizing);
    setEyeDomeLighting(options.edl);
    setShading(options.shading);
    setLight(options.light);
    setSurface(options.surface);
}

Status Scene::load(const std::vector<std::string>& stores, std::vector<WaitingStore> waiting,
                   const Options& options)
{
    std::vector<std::string> notes;
    std::vector<OpenedStore> opened(stores.size());
    for (size_t i = 0; i < stores.size(); ++i) {
        std::string note;
        if (Status status = openStore(stores[i], options.normals, opened[i], note); !status) return status;
        if (!note.empty()) notes.push_back(note);
    }
    await(std::move(waiting), notes);
    add(std::move(opened), notes);
    setLook(options);
    for (const std::string& note : notes)
        std::fprintf(stderr, "brxview: %s\n", printable(note).c_str());
    if (options.mode == ColorMode::RGB) tellColorless();
    if (const std::string text = remark(); !text.empty() && options.mode != ColorMode::RGB)
        std::fprintf(stderr, "brxview: %s\n", printable(text).c_str());
    return Status();
}

std::vector<uint64_t> Scene::add(std::vector<OpenedStore> stores, std::vector<std::string>& notes)
{
    const uint64_t firstNew = _lastOrder + 1;
    std::vector<uint64_t> ids;
    bool wereExpected = true;
    for (OpenedStore& store : stores) {
        const VelBrx::FileIdentity& file = store.cloud.cloud->getOctree()->pointFile->identity();
        if (const auto shown = _files.find(file); shown != _files.end()) {
            notes.push_back(store.path + ": is the same file as " + findCloud(shown->second)->store +
                            ", which is shown");
            wereExpected = _waiting.erase(store.path) == 0 && wereExpected;
            continue;
        }
        Cloud cloud = place(std::move(store));
        wereExpected = takeExpected(cloud) && wereExpected;
        ids.push_back(cloud.id);
        _files[file] = cloud.id;
        _clouds.push_back(std::move(cloud));
    }
    if (!wereExpected) {
        followClouds();
        tellOtherSystems(firstNew, notes);
        tellFarAway(firstNew, notes);
    } else if (!ids.empty()) { // bounds, units and scale of colours stay as they are
        ++_cloudsRevision;
        ++_legendRevision;
        _boundsOfMost.reset();
        followEdits();
    }
    return ids;
}

/// Puts what was opened into the picture; it looks as the others do.
Scene::Cloud Scene::place(OpenedStore store)
{
    Cloud cloud;
    cloud.id = ++_lastId;
    cloud.store = std::move(store.path);
    cloud.node = store.cloud.cloud;
    cloud.placed = store.cloud.node;
    cloud.points = store.cloud.header.pointCount;
    cloud.statistics = std::move(store.cloud.statistics);
    cloud.bounds = store.bounds;
    cloud.bulk = store.bulk;
    cloud.system = std::move(store.system);
    PointCloudHelper::setPointCloudId(cloud.node, cloud.id);
    PointCloudHelper::setClipPlane(cloud.node, _clipPlanes);
    VelOsgDBBrx::ShaderHelper::switchEDLShader(cloud.node, _edl);
    applyLight(*cloud.node, _light);
    if (_mode != ColorMode::CHANGED) _coloring.apply(cloud.node, modeOf(cloud.statistics));
    _root->addChild(cloud.placed);
    return cloud;
}

/// Gives a new cloud the place of the store that waited for it. False where its points are not known yet.
bool Scene::takeExpected(Cloud& cloud)
{
    const auto waiting = _waiting.find(cloud.store);
    cloud.order = waiting == _waiting.end() ? ++_lastOrder : waiting->second.order;
    if (waiting == _waiting.end()) return false;
    const WaitingStore& told = waiting->second;
    const bool isAsTold = told.points == cloud.points && told.bounds._min == cloud.bounds._min &&
                          told.bounds._max == cloud.bounds._max &&
                          told.statistics.pointsByClass == cloud.statistics.pointsByClass;
    _waiting.erase(waiting);
    return isAsTold;
}

uint64_t Scene::addPreview(OpenedStore preview, uint64_t points)
{
    _previews.push_back(place(std::move(preview)));
    _previews.back().points = points;
    _previews.back().order = ++_lastOrder;
    followClouds();
    return _previews.back().id;
}

void Scene::await(std::vector<WaitingStore> stores, std::vector<std::string>& notes)
{
    std::set<std::string> shown;
    for (const Cloud& cloud : _clouds)
        shown.insert(cloud.store);
    const uint64_t firstNew = _lastOrder + 1;
    for (WaitingStore& store : stores) {
        if (shown.count(store.path) > 0 || _waiting.count(store.path) > 0) continue;
        store.order = ++_lastOrder;
        const std::string path = store.path;
        _waiting.emplace(path, std::move(store));
    }
    if (_lastOrder < firstNew) return;
    followClouds();
    tellOtherSystems(firstNew, notes);
    tellFarAway(firstNew, notes);
}

void Scene::giveUp(const std::vector<std::string>& paths)
{
    size_t waited = 0;
    for (const std::string& path : paths)
        waited += _waiting.erase(path);
    if (waited > 0) followClouds();
}

void Scene::remove(uint64_t id)
{
    for (std::vector<Cloud>* const list : {&_clouds, &_previews}) {
        const auto cloud =
            std::find_if(list->begin(), list->end(), [id](const Cloud& known) { return known.id == id; });
        if (cloud == list->end()) continue;
        if (list == &_clouds && _mode == ColorMode::CHANGED) _changed.end({cloud->node});
        if (list == &_clouds) _files.erase(cloud->octree().pointFile->identity());
        _root->removeChild(cloud->placed);
        list->erase(cloud);
        followClouds();
        return;
    }
}

/// The clouds, then the previews.
std::vector<const Scene::Cloud*> Scene::all() const
{
    std::vector<const Cloud*> all;
    for (const std::vector<Cloud>* const list : {&_clouds, &_previews})
        for (const Cloud& cloud : *list)
            all.push_back(&cloud);
    return all;
}

void Scene::setShown(uint64_t id, bool shown)
{
    for (Cloud& cloud : _clouds) {
        if (cloud.id != id || cloud.shown == shown) continue;
        cloud.shown = shown;
        cloud.placed->setNodeMask(shown ? ~0u : 0u);
        ++_cloudsRevision;
    }
}

const Scene::Cloud* Scene::findCloud(uint64_t id) const
{
    // They came in the order of their ids.
    const auto cloud =
        std::lower_bound(_clouds.begin(), _clouds.end(), id,
                         [](const Cloud& known, uint64_t wanted) { return known.id < wanted; });
    return cloud == _clouds.end() || cloud->id != id ? nullptr : &*cloud;
}

/// In the order in which the scene was told of them.
std::vector<Scene::Part> Scene::parts(bool previewsToo) const
{
    std::vector<Part> parts;
    parts.reserve(_clouds.size() + _previews.size() + _waiting.size());
    const auto add = [&](const Cloud& cloud, bool isPreview) {
        parts.push_back({&cloud.store, &cloud.bounds, &cloud.bulk, &cloud.statistics, &cloud.system,
                         cloud.points, cloud.order, isPreview});
    };
    for (const Cloud& cloud : _clouds)
        add(cloud, false);
    for (size_t i = 0; previewsToo && i < _previews.size(); ++i)
        add(_previews[i], true);
    for (const auto& [path, store] : _waiting)
        parts.push_back({&path, &store.bounds, &store.bulk, &store.statistics, &store.system, store.points,
                         store.order, false});
    std::sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) { return a.order < b.order; });
    return parts;
}

/// Bounds and colours are of the stores that there are now.
void Scene::followClouds()
{
    ++_cloudsRevision;
    _bounds.init();
    _boundsOfMost.reset();
    _units = Units();
    _statistics = VelBrx::StoreStatistics();
    _firstStore.clear();
    const std::vector<Part> parts = this->parts(true);
    bool haveUnits = false;
    for (const Part& part : parts) {
        if (_firstStore.empty() && !part.isPreview) _firstStore = *part.store;
        _bounds.expandBy(*part.bounds);
        if (!haveUnits && part.system->has_value()) _units = Units(*part.system);
        haveUnits = haveUnits || part.system->has_value();
        if (&part == &parts.front())
            _statistics = *part.statistics;
        else
            merge(_statistics, *part.statistics);
    }
    for (const Cloud* const cloud : all())
        applyLight(*cloud->node, _light);
    setSurface(_surface);
    followColors();
}

const osg::BoundingBoxd& Scene::boundsOfMostStores() const
{
    if (_boundsOfMost) return *_boundsOfMost;
    _boundsOfMost.emplace();
    const std::vector<Part> all = parts(true);
    const std::vector<bool> isFramed = framed(all);
    for (size_t i = 0; i < all.size(); ++i)
        if (isFramed[i]) _boundsOfMost->expandBy(boundsOfMost(*all[i].bounds, *all[i].bulk));
    return *_boundsOfMost;
}

/// Of each, whether views of the survey show it: with the one of the most points, those around it.
std::vector<bool> Scene::framed(const std::vector<Part>& parts)
{
    std::vector<osg::BoundingBoxd> surveys;
    size_t largest = 0;
    for (const Part& part : parts) {
        if (part.points > parts[largest].points) largest = surveys.size();
        surveys.push_back(*part.bounds);
    }
    return inOnePicture(surveys, largest);
}

/// One line, however many of the stores from the order `firstNew` on are meant.
void Scene::tellFarAway(uint64_t firstNew, std::vector<std::string>& notes) const
{
    const std::vector<Part> all = parts(false); // of a preview it is told when its store comes
    const std::vector<bool> isFramed = framed(all);
    const Part* shown = nullptr;
    const Part* far = nullptr;
    bool areNew = false;
    size_t count = 0;
    for (size_t i = 0; i < all.size(); ++i) {
        (isFramed[i] ? shown : far) = &all[i];
        count += !isFramed[i];
        areNew = areNew || all[i].order >= firstNew;
    }
    if (!far || !areNew) return;
    const std::string more = count > 1 ? " (and " + std::to_string(count - 1) + " more)" : "";
    const double distance = (far->bounds->center() - shown->bounds->center()).length();
    notes.push_back(printable(*far->store + more + ": lies " + grouped(static_cast<uint64_t>(distance)) +
                              " units from " + *shown->store +
                              ": views show the latter; Frame in the panel, or --view, looks there"));
}

/// All clouds have the colours that are wanted now.
void Scene::followColors()
{
    _coloring = Coloring(_statistics, _singleColor, _gradients);
    for (unsigned code = 0; code < _notedClasses.size(); ++code)
        if (_notedClasses[code]) _coloring.addClass(static_cast<uint8_t>(code));
    setColorMode(_mode, _changedBy);
}

/// Likewise.
void Scene::tellOtherSystems(uint64_t firstNew, std::vector<std::string>& notes) const
{
    const Part* known = nullptr;
    std::vector<Part> others;
    const std::vector<Part> all = parts(false);
    for (const Part& part : all) {
        if (!part.system->has_value()) continue;
        if (!known) known = &part;
        if (part.order >= firstNew && !(*part.system)->isSameAs(**known->system)) others.push_back(part);
    }
    if (others.empty()) return;
    const std::string more = others.size() > 1 ? " (and " + std::to_string(others.size() - 1) + " more)" : "";
    notes.push_back(printable(*others.front().store + more + ": is in another coordinate system, " +
                              (*others.front().system)->description() + ", than " + *known->store + ", " +
                              (*known->system)->description() +
                              ": its place and what is measured there do not fit"));
}

/// One line, however many stores are meant.
void Scene::tellColorless() const
{
    const auto isColorless = [](const Part& part) { return part.statistics->maxColor == 0; };
    const std::vector<Part> all = parts(false);
    const auto first = std::find_if(all.begin(), all.end(), isColorless);
    if (first == all.end()) return;
    const auto others = std::count_if(first + 1, all.end(), isColorless);
    const std::string more = others > 0 ? " (and " + std::to_string(others) + " more)" : std::string();
    std::fprintf(stderr, "brxview: %s%s has no colours, so its points are black; see --mode\n",
                 printable(*first->store).c_str(), more.c_str());
}

void Scene::noteClass(uint8_t code)
{
    _notedClasses.set(code);
    _coloring.addClass(code);
    ++_legendRevision;
}

void Scene::forgetAllBut(const std::bitset<256>& classes)
{
    if ((_notedClasses & ~classes).none()) return;
    _notedClasses &= classes;
    followColors();
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
            _coloring.apply(cloud.node, modeOf(cloud.statistics));
    for (const Cloud& preview : _previews) // they have no journals
        _coloring.apply(preview.node, mode == ColorMode::CHANGED ? Coloring::automatic(preview.statistics)
                                                                 : modeOf(preview.statistics));
}

std::optional<ColorMode> Scene::gradientMode() const
{
    for (const Cloud* const cloud : all())
        if (hasGradient(modeOf(cloud->statistics))) return modeOf(cloud->statistics);
    return std::nullopt;
}

void Scene::setColorSpan(ColorMode mode, const std::optional<ColorSpan>& span)
{
    if (span)
        _gradients.spans[mode] = *span;
    else
        _gradients.spans.erase(mode);
    followColors();
}

void Scene::setPalette(const std::string& name)
{
    _gradients.palette = name;
    followColors();
}

void Scene::setExposure(const Exposure& exposure)
{
    _exposure = exposure;
    if (exposure.brightness == 0 && exposure.contrast == 1)
        PointCloudHelper::resetBrightness(_root);
    else
        PointCloudHelper::setBrightnessContrast(_root, static_cast<float>(exposure.brightness),
                                                static_cast<float>(exposure.contrast));
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

ColorMode Scene::modeOf(const VelBrx::StoreStatistics& statistics) const
{
    return _mode == ColorMode::AUTOMATIC ? Coloring::automatic(statistics) : _mode;
}

Legend Scene::legend() const
{
    if (!_surface.on) return legendOfPoints();
    Legend legend = _surface.points        ? legendOfPoints()
                    : _surface.byElevation ? _coloring.legend(ColorMode::ELEVATION)
                                           : Legend();
    if (legend.title.empty()) legend.title = "surface";
    legend.remark = describeSurface(_surface, _statistics.elevation, _units.height);
    return legend;
}

Legend Scene::legendOfPoints() const
{
    if (_mode == ColorMode::CHANGED) return _changed.legend();
    for (const Cloud* const cloud : all()) {
        const Legend legend = _coloring.legend(modeOf(cloud->statistics));
        if (!legend.title.empty()) return legend;
    }
    for (const auto& [path, store] : _waiting) {
        const Legend legend = _coloring.legend(modeOf(store.statistics));
        if (!legend.title.empty()) return legend;
    }
    return Legend();
}

std::string Scene::remark() const
{
    const Legend shown = legendOfPoints();
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
    for (const Cloud* const cloud : all())
        applyLight(*cloud->node, light);
}

void Scene::setSurface(const SurfaceLook& surface)
{
    _surface = surface;
    applySurface(*_root, surface, _statistics.elevation);
    ++_legendRevision;
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
    _clipBox.reset();
    PointCloudHelper::setClipPlane(_root, planes);
}

void Scene::setClipBox(const std::optional<osg::BoundingBoxd>& box)
{
    std::vector<osg::Vec4d> planes;
    for (int axis = 0; box && axis < 3; ++axis)
        for (const bool high : {false, true}) {
            osg::Vec4d plane;
            plane[axis] = high ? -1 : 1;
            plane.w() = high ? box->_max[axis] : -box->_min[axis];
            planes.push_back(plane);
        }
    setClipPlanes(planes);
    _clipBox = box;
}

void Scene::setPointSize(int pixels)
{
    _pointSize = std::clamp(pixels, 1, kLargestPointSize);
    PointCloudHelper::setPointSize(_root, _pointSize);
    setPointSizing(_pointSizing);
}

void Scene::setPointSizing(const PointSizing& sizing)
{
    _pointSizing = sizing;
    _pointSizing.factor = std::clamp(sizing.factor, 0.0, kLargestSizeFactor);
    PointCloudHelper::setPointSizeBySpacing(_root, sizing.bySpacing ? _pointSizing.factor : 0, _pointSize,
                                            kLargestPointSize);
}

uint64_t Scene::largestPoints() const
{
    const uint64_t points = _drawing.budget.value_or(kUsualBudget);
    return _drawing.memory ? std::min(points, *_drawing.memory / bytesPerPoint()) : points;
}

uint64_t Scene::bytesPerPoint() const
{
    constexpr uint64_t kAttributes = 44; // place, six words, and the number in the store
    constexpr uint64_t kNormal = 16;
    const bool haveNormals = std::any_of(_clouds.begin(), _clouds.end(), [](const Cloud& cloud) {
        const OctreeInfo& octree = cloud.octree();
        return octree.normalsFile && octree.normalsFile->isValid();
    });
    return kAttributes + (haveNormals ? kNormal : 0);
}

double Scene::meanPointDistance() const
{
    uint64_t points = 0;
    double area = 0;
    for (const Cloud& cloud : _clouds) {
        for (const uint64_t count : cloud.statistics.pointsByClass)
            points += count;
        const OctreeInfo& octree = *cloud.node->getOctree();
        const osg::Vec3d size = octree.max - octree.min;
        area += size.x() * size.y();
    }
    return points > 0 ? std::sqrt(area / static_cast<double>(points)) : 0;
}

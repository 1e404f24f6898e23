#include "viewer/measure/Measuring.h"

void Measuring::begin(MeasureKind kind)
{
    _kind = kind;
    _points.clear();
    _inputs.clear();
}

const Measuring::Input* Measuring::nextClick()
{
    while (!_inputs.empty() && _inputs.front().what != Input::CLICK) {
        const bool finishes = _inputs.front().what == Input::FINISH;
        _inputs.pop_front();
        if (finishes)
            finish();
        else
            dropLastPoint();
    }
    return _inputs.empty() ? nullptr : &_inputs.front();
}

std::string Measuring::hint() const
{
    if (!_kind) return {};
    const std::string begin = "Measuring (" + nameOf(*_kind) + "): ";
    if (pointsOf(*_kind).most == 1) return begin + "click on points; Escape ends";
    if (_points.empty()) return begin + "click on the first point; Escape ends";
    const bool isCounted = pointsOf(*_kind).most == pointsOf(*_kind).fewest;
    return begin + "click on the next point; " + (isCounted ? "" : "right click or Enter completes, ") +
           "Backspace drops the last point";
}

void Measuring::addPoint(const osg::Vec3d& world)
{
    if (!_kind) return;
    _points.push_back(world);
    if (_points.size() == pointsOf(*_kind).most) finish();
}

void Measuring::dropLastPoint()
{
    if (!_points.empty()) _points.pop_back();
}

bool Measuring::finish()
{
    if (_points.empty() || !_kind) {
        end();
        return false;
    }
    const std::vector<osg::Vec3d> points = std::move(_points);
    _points.clear();
    if (points.size() >= pointsOf(*_kind).fewest) add(*_kind, points);
    return true;
}

void Measuring::end()
{
    _kind.reset();
    _points.clear();
    _inputs.clear();
}

void Measuring::add(MeasureKind kind, const std::vector<osg::Vec3d>& points)
{
    if (kind != MeasureKind::HEIGHT) {
        _list.add({kind, points, std::nullopt}, _scene.units());
        return;
    }
    _waiting.push_back(points.front());
    if (!_search.isRunning()) search();
}

bool Measuring::update()
{
    std::optional<double> ground;
    if (!_search.takeAnswer(ground)) return false;
    _list.add({MeasureKind::HEIGHT, {_waiting.front()}, ground}, _scene.units());
    _waiting.erase(_waiting.begin());
    if (!_waiting.empty()) search();
    return true;
}

/// What the surface is of is the ground.
void Measuring::search()
{
    _search.start(_waiting.front(), _scene.surface().classes, stores(), farthest());
}

const Measurements::Entry& Measuring::addNow(Measurement measurement)
{
    if (measurement.kind == MeasureKind::HEIGHT) {
        const std::atomic<bool> cancel{false};
        measurement.ground =
            groundBelow(measurement.points.front(), _scene.surface().classes, stores(), farthest(), cancel);
    }
    _list.add(measurement, _scene.units());
    return _list.all().back();
}

std::vector<osg::ref_ptr<OctreeInfo>> Measuring::stores() const
{
    std::vector<osg::ref_ptr<OctreeInfo>> stores;
    for (const Scene::Cloud& cloud : _scene.clouds())
        if (cloud.shown) stores.emplace_back(cloud.node->getOctree());
    return stores;
}

double Measuring::farthest() const
{
    constexpr double kMetres = 64;
    return kMetres / _scene.units().metres;
}

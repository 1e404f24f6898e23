#include "viewer/measure/Measurement.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr int kDegreeDecimals = 8; ///< of coordinates in degrees: a millimetre
constexpr int kAngleDecimals = 4;
constexpr size_t kMostPoints = 1000;

/// Sideways and up, all in the unit of x and y.
osg::Vec3d inOneUnit(osg::Vec3d step, const Units& units)
{
    step.z() *= units.heightFactor;
    return step;
}

double levelLength(const osg::Vec3d& step)
{
    return std::hypot(step.x(), step.y());
}

double degrees(double radians)
{
    return radians * 180 / M_PI;
}

double cross(const osg::Vec3d& a, const osg::Vec3d& b)
{
    return a.x() * b.y() - a.y() * b.x();
}

/// Whether the edges a-b and c-d meet, seen from above.
bool doMeet(const osg::Vec3d& a, const osg::Vec3d& b, const osg::Vec3d& c, const osg::Vec3d& d)
{
    const auto side = [](const osg::Vec3d& from, const osg::Vec3d& to, const osg::Vec3d& point) {
        return cross(to - from, point - from);
    };
    return side(a, b, c) * side(a, b, d) < 0 && side(c, d, a) * side(c, d, b) < 0;
}

bool crossesItself(const std::vector<osg::Vec3d>& outline)
{
    const size_t count = outline.size();
    for (size_t i = 0; i < count; ++i)
        for (size_t j = i + 1; j < count; ++j)
            if (doMeet(outline[i], outline[(i + 1) % count], outline[j], outline[(j + 1) % count]))
                return true;
    return false;
}

/// Of the polygon from above. From its first point on: world coordinates are large.
double areaOf(const std::vector<osg::Vec3d>& outline)
{
    double twice = 0;
    for (size_t i = 1; i + 1 < outline.size(); ++i)
        twice += cross(outline[i] - outline[0], outline[i + 1] - outline[0]);
    return std::abs(twice) / 2;
}

/// Between two directions; 0 where one has no length.
double angleBetween(const osg::Vec3d& a, const osg::Vec3d& b)
{
    return degrees(std::atan2((a ^ b).length(), a * b));
}

class Figures
{
public:
    Figures(const Measurement& measurement, const Units& units)
        : _points(measurement.points), _measurement(measurement), _units(units)
    {
    }

    std::vector<Figure> all()
    {
        switch (_measurement.kind) {
        case MeasureKind::POINT:
            addPlace();
            break;
        case MeasureKind::DISTANCE:
            addDistance();
            break;
        case MeasureKind::AREA:
            if (!_units.isGeographic) addArea();
            break;
        case MeasureKind::ANGLE:
            if (!_units.isGeographic) addAngle();
            break;
        case MeasureKind::HEIGHT:
            addHeight();
            break;
        }
        return std::move(_figures);
    }

private:
    void add(const char* name, double value, const std::string& unit, int decimals = 3)
    {
        _figures.push_back({name, value, unit, decimals});
    }

    void addPlace()
    {
        const int decimals = _units.isGeographic ? kDegreeDecimals : 3;
        add("x", _points[0].x(), _units.level, decimals);
        add("y", _points[0].y(), _units.level, decimals);
        add("z", _points[0].z(), _units.height);
    }

    void addDistance()
    {
        double slope = 0;
        double level = 0;
        for (size_t i = 1; i < _points.size(); ++i) {
            const osg::Vec3d step = inOneUnit(_points[i] - _points[i - 1], _units);
            slope += step.length();
            level += levelLength(step);
        }
        const osg::Vec3d whole = _points.back() - _points.front();
        if (_units.isGeographic) {
            add("east", whole.x(), _units.level, kDegreeDecimals);
            add("north", whole.y(), _units.level, kDegreeDecimals);
        } else {
            add("length", slope, _units.level);
            add("level", level, _units.level);
        }
        add("height", whole.z(), _units.height);
        if (!_units.isGeographic && _points.size() == 2 && levelLength(whole) > 0) {
            const double direction = degrees(std::atan2(whole.x(), whole.y()));
            add("direction", direction < 0 ? direction + 360 : direction, "°", kAngleDecimals);
        }
    }

    void addArea()
    {
        double perimeter = 0;
        for (size_t i = 0; i < _points.size(); ++i)
            perimeter += levelLength(_points[(i + 1) % _points.size()] - _points[i]);
        if (!crossesItself(_points))
            add("area", areaOf(_points), _units.level.empty() ? "" : _units.level + "²");
        add("perimeter", perimeter, _units.level);
    }

    void addAngle()
    {
        osg::Vec3d a = inOneUnit(_points[0] - _points[1], _units);
        osg::Vec3d b = inOneUnit(_points[2] - _points[1], _units);
        add("angle", angleBetween(a, b), "°", kAngleDecimals);
        a.z() = b.z() = 0;
        add("horizontal", angleBetween(a, b), "°", kAngleDecimals);
    }

    void addHeight()
    {
        if (!_measurement.ground) return;
        add("height", _points[0].z() - *_measurement.ground, _units.height);
        add("ground", *_measurement.ground, _units.height);
    }

    const std::vector<osg::Vec3d>& _points;
    const Measurement& _measurement;
    const Units& _units;
    std::vector<Figure> _figures;
};

} // namespace

const std::vector<std::string>& namesOfMeasureKinds()
{
    static const std::vector<std::string> names = {"point", "distance", "area", "angle", "height"};
    return names;
}

std::string nameOf(MeasureKind kind)
{
    return namesOfMeasureKinds()[static_cast<size_t>(kind)];
}

PointRange pointsOf(MeasureKind kind)
{
    switch (kind) {
    case MeasureKind::DISTANCE:
        return {2, kMostPoints};
    case MeasureKind::AREA:
        return {3, kMostPoints};
    case MeasureKind::ANGLE:
        return {3, 3};
    default:
        return {1, 1};
    }
}

std::string Figure::text() const
{
    char number[512]; // a double of any size with all its digits
    std::snprintf(number, sizeof number, "%.*f", decimals, value);
    if (unit.empty()) return number;
    return number + std::string(unit == "°" ? "" : " ") + unit;
}

std::vector<Figure> figuresOf(const Measurement& measurement, const Units& units)
{
    if (measurement.points.size() < pointsOf(measurement.kind).fewest) return {};
    return Figures(measurement, units).all();
}

std::string remarkOn(const Measurement& measurement, const Units& units)
{
    const bool isFlat = measurement.kind == MeasureKind::POINT || measurement.kind == MeasureKind::HEIGHT;
    if (units.isGeographic && !isFlat) return "coordinates in degrees: no lengths";
    if (measurement.kind == MeasureKind::AREA && crossesItself(measurement.points))
        return "no area: the outline crosses itself";
    if (measurement.kind == MeasureKind::HEIGHT && !measurement.ground) return "no ground near the point";
    return {};
}

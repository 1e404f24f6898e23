#include "store/sample/Noise.h"
#include "store/sample/Scene.h"

#include <array>
#include <cmath>

namespace VelBrx::Sample {

namespace {

constexpr double kPi = 3.14159265358979323846;

constexpr Color kRoofs[] = {{0.64, 0.31, 0.22}, {0.56, 0.27, 0.2}, {0.7, 0.38, 0.26}, {0.45, 0.25, 0.21},
                            {0.36, 0.36, 0.39}, {0.29, 0.3, 0.33}, {0.6, 0.35, 0.27}};
constexpr Color kWalls[] = {{0.91, 0.89, 0.84}, {0.88, 0.83, 0.7},  {0.83, 0.8, 0.77},
                            {0.79, 0.62, 0.5},  {0.93, 0.91, 0.89}, {0.72, 0.49, 0.4}};
constexpr Color kCars[] = {{0.85, 0.86, 0.88}, {0.13, 0.14, 0.16}, {0.62, 0.64, 0.67},
                           {0.62, 0.12, 0.12}, {0.14, 0.24, 0.5},  {0.3, 0.33, 0.36}};
constexpr Color kPylonColor{0.52, 0.55, 0.56};
constexpr Color kWireColor{0.3, 0.31, 0.33};

template <size_t N>
const Color& oneOf(const Color (&colors)[N], Random& random)
{
    return colors[static_cast<size_t>(random.uniform() * N)];
}

Color leafColor(Random& random)
{
    const double warm = random.between(-0.045, 0.07);
    return Color{0.335 + warm, 0.47 + 0.4 * warm, 0.215 + 0.2 * warm} * random.between(0.86, 1.12);
}

Color needleColor(Random& random)
{
    return Color{0.235, 0.36, 0.22} * random.between(0.85, 1.15);
}

/// Places things along the landscape's lines. Distances across the road are positive to the north.
class Furnisher
{
public:
    explicit Furnisher(Scene& scene)
        : _scene(scene), _land(scene.landscape()), _random(scene.landscape().seed() ^ 0xF00D)
    {
    }

    void furnish()
    {
        buildVillage();
        buildHalls();
        driveCars();
        plantAvenue();
        plantBanks();
        plantHedges();
        plantForest();
        raisePowerLine();
        _scene.finish();
    }

private:
    Scene& _scene;
    const Landscape& _land;
    Random _random;

    double roadAngle(double x) const { return std::atan(_land.roadSlope(x)); }

    bool isInside(double x, double y) const
    {
        return x > 2 && y > 2 && x < _land.size() - 2 && y < _land.size() - 2;
    }

    void buildVillage()
    {
        constexpr double kRows[] = {23, 56, 84, 112, -23, -52};
        const double church = 0.5 * _land.size() + 52;
        for (double row : kRows)
            for (double x = 0.15 * _land.size(); x < 0.79 * _land.size(); x += 24.5) {
                const double place = x + _random.between(-2, 2);
                const bool isChurchyard = std::abs(place - church) < 26 && row > 0 && row < 60;
                const bool isOutside =
                    row > _land.villageNorth(place) - 10 || row < _land.villageSouth(place) + 10;
                const bool isUnderWires = std::abs(place - _land.powerLineX(_land.roadY(place) + row)) < 24;
                if (isOutside || isUnderWires || isChurchyard || _land.streetDistance(place) < 13.5 ||
                    _random.chance(0.07))
                    continue;
                settle(place, row + _random.between(-2, 2));
            }
        if (_land.isVillage(church)) buildChurch(church, 38);
    }

    /// A house with its outbuildings and garden.
    void settle(double x, double across)
    {
        House house;
        house.x = x;
        house.y = _land.roadY(x) + across;
        if (!isInside(house.x, house.y)) return;
        house.angle = roadAngle(x) + (_random.chance(0.3) ? kPi / 2 : 0) + _random.between(-0.05, 0.05);
        house.length = _random.between(10.5, 15);
        house.width = _random.between(8, 10.5);
        house.eaves = _random.chance(0.3) ? _random.between(5.4, 6.4) : _random.between(3, 4.2);
        house.rise = house.width / 2 * std::tan(_random.between(0.62, 0.85));
        const double kind = _random.uniform();
        house.roof = kind < 0.76 ? House::Roof::Gable : kind < 0.94 ? House::Roof::Hip : House::Roof::Flat;
        if (house.roof == House::Roof::Hip) house.rise *= 0.75;
        house.roofColor = house.roof == House::Roof::Flat ? Color{0.5, 0.5, 0.49} : oneOf(kRoofs, _random);
        house.wallColor = oneOf(kWalls, _random);
        _scene.addHouse(house);
        addChimney(house);
        if (_random.chance(0.6)) addGarage(house);
        plantGarden(house);
    }

    void addChimney(const House& house)
    {
        if (house.roof == House::Roof::Flat) return;
        const double along = _random.between(-0.25, 0.25) * house.length;
        const double x = house.x + along * std::cos(house.angle);
        const double y = house.y + along * std::sin(house.angle);
        const double ground = _land.elevation(house.x, house.y);
        _scene.addBox({x, y, ground + house.eaves + house.rise - 1}, house.angle, {0.7, 0.7, 1.9},
                      {0.5, 0.34, 0.29}, kBuilding);
    }

    void addGarage(const House& house)
    {
        House garage;
        const double side = house.length / 2 + 2.2;
        garage.x = house.x + side * std::cos(house.angle);
        garage.y = house.y + side * std::sin(house.angle);
        garage.angle = house.angle + kPi / 2;
        garage.length = 6.2;
        garage.width = 3.4;
        garage.eaves = 2.7;
        garage.roof = House::Roof::Flat;
        garage.roofColor = {0.58, 0.57, 0.55};
        garage.wallColor = house.wallColor;
        _scene.addHouse(garage);
    }

    void plantGarden(const House& house)
    {
        for (int i = 0; i < 3; ++i) {
            const double angle = _random.between(0, 2 * kPi);
            const double x = house.x + 11.5 * std::cos(angle);
            const double y = house.y + 11.5 * std::sin(angle);
            if (!isOpen(x, y) || !isInside(x, y)) continue;
            if (_random.chance(0.45))
                _scene.addShrub(x, y, _random.between(0.7, 1.6), _random.between(1, 2.4), leafColor(_random));
            else
                _scene.addBroadleaf(x, y, _random.between(5, 11), leafColor(_random), _random.bits());
        }
    }

    /// Not on a road, a street or the river.
    bool isOpen(double x, double y) const
    {
        const Cover cover = _land.cover(x, y);
        return cover == Cover::Garden || cover == Cover::Meadow || cover == Cover::Field ||
               cover == Cover::Forest;
    }

    void buildChurch(double x, double across)
    {
        House nave;
        nave.x = x;
        nave.y = _land.roadY(x) + across;
        nave.angle = 0.04;
        nave.length = 27;
        nave.width = 12;
        nave.eaves = 8.5;
        nave.rise = 8;
        nave.roofColor = {0.37, 0.38, 0.42};
        nave.wallColor = {0.87, 0.84, 0.77};
        _scene.addHouse(nave);
        House tower = nave;
        tower.x = x - 16.5;
        tower.length = tower.width = 7.2;
        tower.eaves = 21;
        tower.rise = 15;
        tower.roof = House::Roof::Hip;
        tower.roofColor = {0.33, 0.47, 0.42};
        _scene.addHouse(tower);
        for (int i = 0; i < 12; ++i) {
            const double angle = i * kPi / 6;
            const double treeX = x - 3 + 27 * std::cos(angle);
            const double treeY = nave.y + 16.5 * std::sin(angle);
            if (isOpen(treeX, treeY))
                _scene.addBroadleaf(treeX, treeY, _random.between(10, 14), leafColor(_random),
                                    _random.bits());
        }
    }

    /// Workshops at the eastern end of the village.
    void buildHalls()
    {
        for (int i = 0; i < 3; ++i) {
            House hall;
            hall.x = 0.85 * _land.size() + 34 * i;
            hall.y = _land.roadY(hall.x) - 34;
            if (!isInside(hall.x + 12, hall.y)) return;
            hall.angle = roadAngle(hall.x) + kPi / 2;
            hall.length = 36;
            hall.width = 22;
            hall.eaves = 7 + i;
            hall.rise = 2;
            hall.roof = i == 1 ? House::Roof::Gable : House::Roof::Flat;
            hall.roofColor = i == 1 ? Color{0.42, 0.52, 0.6} : Color{0.74, 0.74, 0.72};
            hall.wallColor = {0.76, 0.78, 0.8};
            _scene.addHouse(hall);
        }
    }

    void addCar(double x, double y, double angle)
    {
        if (!isInside(x, y)) return;
        const Color& color = oneOf(kCars, _random);
        const double ground = _land.elevation(x, y);
        _scene.addBox({x, y, ground + 0.25}, angle, {4.5, 1.8, 0.65}, color, kUnclassified);
        _scene.addBox({x - 0.3 * std::cos(angle), y - 0.3 * std::sin(angle), ground + 0.9}, angle,
                      {2.3, 1.6, 0.55}, color * 0.55, kUnclassified);
    }

    void driveCars()
    {
        for (double x = _random.between(10, 60); x < _land.size(); x += _random.between(28, 110)) {
            const double lane = _random.chance(0.5) ? 1.75 : -1.75;
            addCar(x, _land.roadY(x) + lane, roadAngle(x) + (lane > 0 ? kPi : 0));
        }
        for (double x = 0.15 * _land.size(); x < 0.79 * _land.size(); x += 0.5)
            if (_land.streetDistance(x) > 1.55 && _land.streetDistance(x) <= 1.9)
                for (double across = 14; across < _land.villageNorth(x) - 4; across += 7)
                    if (_random.chance(0.12)) addCar(x, _land.roadY(x) + across, kPi / 2);
    }

    void plantAvenue()
    {
        for (double x = 6; x < _land.size(); x += 13)
            for (double across : {-8.8, 8.8}) {
                const double y = _land.roadY(x) + across + _random.between(-0.4, 0.4);
                const bool isKept =
                    !_land.isVillage(x) || (_land.streetDistance(x) > 8 && _random.chance(0.35));
                if (isKept && isOpen(x, y) && std::abs(x - _land.powerLineX(y)) > 16)
                    _scene.addBroadleaf(x, y, _random.between(8, 12), leafColor(_random), _random.bits());
            }
    }

    void plantBanks()
    {
        for (double x = 3; x < _land.size(); x += 5)
            for (double side : {-1.0, 1.0}) {
                if (noise(x / 45, side, _land.seed() + 31) < -0.1) continue;
                const double y = _land.riverY(x) + side * (_land.riverHalfWidth(x) + _random.between(4, 11));
                if (!isInside(x, y) || std::abs(x - _land.powerLineX(y)) < 16) continue;
                if (_random.chance(0.45))
                    _scene.addShrub(x, y, _random.between(1, 2.4), _random.between(1.4, 3.6),
                                    leafColor(_random));
                else
                    _scene.addBroadleaf(x, y, _random.between(7, 15), leafColor(_random), _random.bits());
            }
    }

    /// Hedges between the fields and single trees on the meadows.
    void plantHedges()
    {
        for (double row = -3; row < 14; ++row)
            for (double x = 1; x < _land.size(); x += 1.5) {
                if (noise(x / 120, row * 7.3, _land.seed() + 32) < 0.05) continue;
                const double y = 130 * row + 0.1 * x -
                                 9 * noise(x / 300, 130 * row / 300, _land.seed() + 24) +
                                 _random.between(-0.8, 0.8);
                if (!isInside(x, y) || _land.cover(x, y) != Cover::Field) continue;
                _scene.addShrub(x, y, _random.between(0.8, 1.7), _random.between(1.2, 3), leafColor(_random));
                if (_random.chance(0.04) && std::abs(x - _land.powerLineX(y)) > 16)
                    _scene.addBroadleaf(x, y, _random.between(9, 15), leafColor(_random), _random.bits());
            }
        const auto lonely = static_cast<int>(_land.size() * _land.size() / 9000);
        for (int i = 0; i < lonely; ++i) {
            const double x = _random.between(4, _land.size() - 4);
            const double y = _random.between(0.45 * _land.size() + 140, 0.76 * _land.size());
            if (!isInside(x, y) || _land.cover(x, y) != Cover::Meadow ||
                std::abs(x - _land.powerLineX(y)) < 18)
                continue;
            _scene.addBroadleaf(x, y, _random.between(6, 13), leafColor(_random), _random.bits());
        }
    }

    void plantForest()
    {
        constexpr double kSpacing = 5.4;
        for (double y = 0.6 * _land.size(); y < _land.size() + 10; y += kSpacing)
            for (double x = -10; x < _land.size() + 10; x += kSpacing) {
                const double treeX = x + _random.between(-2.1, 2.1);
                const double treeY = y + _random.between(-2.1, 2.1);
                const double share = _random.uniform();
                const uint64_t shapeSeed = _random.bits();
                if (treeY < _land.forestEdgeY(treeX) + 2 || _land.isClearing(treeX, treeY) || share < 0.1 ||
                    _land.isSettled(treeX, treeY))
                    continue;
                const double stand = noise(x / 90, y / 90, _land.seed() + 33);
                const double age = 1 + 0.25 * noise(x / 60, y / 60, _land.seed() + 34);
                if (stand + 0.5 * (share - 0.55) > 0.08)
                    _scene.addConifer(treeX, treeY, age * _random.between(15, 23), needleColor(_random));
                else
                    _scene.addBroadleaf(treeX, treeY, age * _random.between(12, 19), leafColor(_random),
                                        shapeSeed);
            }
    }

    /// \name Power line: lattice pylons with three pairs of arms, six conductors and an earth wire
    /// @{
    static constexpr double kPylonHeight = 33;
    struct Arm
    {
        double height;
        double halfLength;
    };
    static constexpr std::array<Arm, 3> kArms = {{{19, 6.5}, {23.5, 8.5}, {28, 5.5}}};

    void raisePowerLine()
    {
        constexpr double kSpan = 165;
        const auto spans = static_cast<int>(std::ceil((_land.size() + 40) / kSpan));
        const double step = (_land.size() + 40) / spans;
        for (int i = 0; i <= spans; ++i) {
            const double y = -20 + i * step;
            buildPylon(pylonFoot(y));
            if (i < spans) hangWires(pylonFoot(y), pylonFoot(y + step));
        }
    }

    Vec3 pylonFoot(double y) const
    {
        const double x = _land.powerLineX(y);
        return {x, y, _land.elevation(x, y)};
    }

    void addBar(const Vec3& from, const Vec3& to)
    {
        _scene.addRod({from, to, 0.16, 0.55, kPylonColor, kUnclassified});
    }

    /// Width of the tower's square at a height.
    static double halfWidth(double height)
    {
        return height < 18 ? mix(2.7, 0.95, height / 18) : mix(0.95, 0.35, (height - 18) / 15);
    }

    void buildPylon(const Vec3& foot)
    {
        constexpr double kFloors[] = {0, 5.5, 10.5, 14.5, 18, 20.5, 23.5, 26, 28, kPylonHeight};
        constexpr double kCorners[][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
        const auto corner = [&](size_t i, double height) {
            const double half = halfWidth(height);
            return foot + Vec3{kCorners[i % 4][0] * half, kCorners[i % 4][1] * half, height};
        };
        for (size_t floor = 0; floor + 1 < std::size(kFloors); ++floor)
            for (size_t i = 0; i < 4; ++i) {
                const double low = kFloors[floor];
                const double high = kFloors[floor + 1];
                addBar(corner(i, low), corner(i, high));
                addBar(corner(i, low), corner(i + 1, high));
                addBar(corner(i + 1, low), corner(i, high));
            }
        for (const Arm& arm : kArms)
            for (double side : {-1.0, 1.0}) {
                const Vec3 tip = foot + Vec3{side * arm.halfLength, 0, arm.height};
                for (double depth : {-1.0, 1.0}) {
                    const double half = halfWidth(arm.height);
                    addBar(foot + Vec3{side * half, depth * half, arm.height}, tip);
                    addBar(foot + Vec3{side * half, depth * half, arm.height + 1.6}, tip);
                }
                addBar(tip, tip - Vec3{0, 0, 1.6});
            }
    }

    void hangWires(const Vec3& from, const Vec3& to)
    {
        const auto hang = [&](double side, double height, double sag) {
            constexpr int kPieces = 28;
            const auto at = [&](int piece) {
                const double part = static_cast<double>(piece) / kPieces;
                const Vec3 straight = from + (to - from) * part + Vec3{side, 0, height};
                return straight - Vec3{0, 0, 4 * sag * part * (1 - part)};
            };
            for (int piece = 0; piece < kPieces; ++piece)
                _scene.addRod({at(piece), at(piece + 1), 0.13, 0.3, kWireColor, kWire});
        };
        for (const Arm& arm : kArms)
            for (double side : {-1.0, 1.0})
                hang(side * arm.halfLength, arm.height - 1.6, 5.2);
        hang(0, kPylonHeight, 4);
    }
    /// @}
};

} // namespace

void furnish(Scene& scene)
{
    Furnisher(scene).furnish();
}

} // namespace VelBrx::Sample

#pragma once

#include "store/sample/Geometry.h"
#include "store/sample/Landscape.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VelBrx::Sample {

/// ASPRS classes of the survey.
enum PointClass : uint8_t
{
    kUnclassified = 1,
    kGround = 2,
    kLowVegetation = 3,
    kMediumVegetation = 4,
    kHighVegetation = 5,
    kBuilding = 6,
    kWater = 9,
    kWire = 14
};

/// One side of a convex body: points p of the body have dot(normal, p) <= offset.
struct Face
{
    Vec3 normal;
    double offset;
    Color color;
    double reflectance;
};

/// A convex, opaque body.
struct Solid
{
    Vec3 center; ///< of a sphere around it
    double radius;
    size_t firstFace;
    size_t endFace;
    uint8_t pointClass;
};

/// A volume that light passes through in part: an ellipsoid with a vertical axis.
struct Crown
{
    Vec3 center;
    double radius; ///< horizontal
    double halfHeight;
    Color color;
    double density; ///< leaves that a beam meets in a metre
};

/// A plant: some crowns and a sphere around them.
struct Plant
{
    Vec3 center;
    double radius;
    size_t firstCrown;
    size_t endCrown;
};

/// A thin straight piece of a wire, a pylon or a lamp post.
struct Rod
{
    Vec3 from;
    Vec3 to;
    double radius; ///< within which a laser beam meets it
    double share;  ///< part of the beam that it takes
    Color color;
    uint8_t pointClass;
};

/// Shape of a house.
struct House
{
    enum class Roof
    {
        Gable,
        Hip,
        Flat
    };
    double x = 0;
    double y = 0;
    double angle = 0; ///< of its length against east, radians
    double length = 12;
    double width = 9;
    double eaves = 5; ///< height of the walls
    double rise = 4;  ///< from the eaves to the ridge
    Roof roof = Roof::Gable;
    Color roofColor;
    Color wallColor;
    uint8_t pointClass = kBuilding;
};

/// What stands on a landscape, found by place. Immutable once made; any thread may use it.
class Scene
{
public:
    explicit Scene(const Landscape& landscape);

    const Landscape& landscape() const { return _landscape; }

    /// Unit vector towards the sun.
    static Vec3 sun();

    /// \name Placing things; bases stand on the ground
    /// @{
    void addHouse(const House& house);
    void addBox(const Vec3& base, double angle, const Vec3& size, const Color& color, uint8_t pointClass);
    void addBroadleaf(double x, double y, double height, const Color& color, uint64_t shapeSeed);
    void addConifer(double x, double y, double height, const Color& color);
    void addShrub(double x, double y, double radius, double height, const Color& color);
    void addRod(const Rod& rod) { _rods.push_back(rod); }
    /// @}

    /// Makes the tables that the queries below need. Call once, after the last thing is placed.
    void finish();

    template <typename T>
    struct Range
    {
        const T* first;
        const T* last;
        const T* begin() const { return first; }
        const T* end() const { return last; }
    };

    /// Things that a laser beam may meet that would meet the ground at (x, y).
    Range<uint32_t> solidsAt(double x, double y) const { return _solidsInSight.at(x, y); }
    Range<uint32_t> plantsAt(double x, double y) const { return _plantsInSight.at(x, y); }
    Range<uint32_t> rodsAt(double x, double y) const { return _rodsInSight.at(x, y); }

    /// Part of the sunlight, 0 to 1, that reaches `point`.
    double sunlight(const Vec3& point) const;

    const Solid& solid(uint32_t index) const { return _solids[index]; }
    const Plant& plant(uint32_t index) const { return _plants[index]; }
    const Rod& rod(uint32_t index) const { return _rods[index]; }
    const Crown& crown(size_t index) const { return _crowns[index]; }
    const Face& face(size_t index) const { return _faces[index]; }

private:
    /// Lists of indices by square of the ground.
    class PlaceTable
    {
    public:
        explicit PlaceTable(double size);
        void add(uint32_t index, double minX, double minY, double maxX, double maxY);
        void finish();
        Range<uint32_t> at(double x, double y) const;

    private:
        int64_t cellOf(double coordinate) const;

        int64_t _width;
        std::vector<std::pair<uint32_t, uint32_t>> _entries; ///< square and index, until `finish`
        std::vector<uint32_t> _starts;
        std::vector<uint32_t> _indices;
    };

    void addPlant(size_t firstCrown, const Vec3& base, double height, double radius);
    void addTrunk(const Vec3& base, double height);
    void addFace(const Vec3& normal, const Vec3& point, const Color& color, double reflectance);
    void enterInSight(PlaceTable& table, uint32_t index, const Vec3& center, double radius) const;
    void enterInShade(PlaceTable& table, uint32_t index, const Vec3& center, double radius) const;

    const Landscape& _landscape;
    std::vector<Face> _faces;
    std::vector<Solid> _solids;
    std::vector<Crown> _crowns;
    std::vector<Plant> _plants;
    std::vector<Rod> _rods;
    PlaceTable _solidsInSight;
    PlaceTable _plantsInSight;
    PlaceTable _rodsInSight;
    PlaceTable _solidsInShade;
    PlaceTable _plantsInShade;
};

/// \name Where rays meet things
/// @{

/// Distances at which a ray enters and leaves a body; `enter` > `leave` where it misses.
struct Passage
{
    double enter = 1;
    double leave = 0;
    bool hits() const { return enter < leave; }
};

bool meetsSphere(const Ray& ray, const Vec3& center, double radius);
Passage passCrown(const Ray& ray, const Crown& crown);

/// `face` becomes the index of the face that it enters by.
Passage passSolid(const Ray& ray, const Scene& scene, const Solid& solid, size_t& face);

/// Whether the ray passes a rod within its radius; `distance` is where.
bool meetsRod(const Ray& ray, const Rod& rod, double& distance);
/// @}

/// Puts village, trees, cars and power line on the scene's landscape.
void furnish(Scene& scene);

} // namespace VelBrx::Sample

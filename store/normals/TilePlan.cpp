#include "store/normals/TilePlan.h"

namespace VelBrx {

namespace {

class TilePlan
{
public:
    TilePlan(const CellSpace& space, uint64_t points) : _space(space), _points(points) {}

    void add(size_t cell)
    {
        const IndexCell& place = _space.index().cells[cell];
        auto [child, end] = _space.children(cell);
        if (child == end || _space.subtreePoints(cell) <= _points) {
            addCube(place.level, place.code);
            return;
        }
        // Octants without a cell of their own may hold points of the cells above.
        for (uint64_t octant = 0; octant < 8; ++octant)
            if (child < end && (_space.index().cells[child].code & 7) == octant)
                add(child++);
            else
                addCube(place.level + 1u, place.code << 3 | octant);
    }

    std::vector<SpaceBox> tiles;

private:
    void addCube(unsigned level, uint64_t code) { tiles.push_back(_space.cube(level, mortonDecode(code))); }

    const CellSpace& _space;
    const uint64_t _points;
};

} // namespace

std::vector<SpaceBox> planTiles(const CellSpace& space, uint64_t points)
{
    TilePlan plan(space, points);
    plan.add(0);
    return plan.tiles;
}

} // namespace VelBrx

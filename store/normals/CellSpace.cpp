#include "store/normals/CellSpace.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <algorithm>
#include <cmath>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr int64_t kReadPoints = 1 << 14;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

} // namespace

CellSpace::CellSpace(const FileReader& file, const BrxHeader& header, const StoreIndex& index)
    : _file(file), _header(header), _index(index), _firstChildren(index.cells.size()),
      _childCounts(index.cells.size()), _subtreePoints(index.cells.size())
{
    _unit = std::min({header.scale[0], header.scale[1], header.scale[2]});
    _cubeSize = index.cubeSize / _unit;
    for (size_t axis = 0; axis < 3; ++axis) {
        _steps[axis] = header.scale[axis] / _unit;
        _cubeMin[axis] = (index.cubeMin[axis] - header.offset[axis]) / _unit;
    }
    // Cells stand by level and code, so the children of cells in order are in order.
    const std::vector<IndexCell>& cells = index.cells;
    size_t parent = 0;
    for (size_t cell = 1; cell < cells.size(); ++cell) {
        while (cells[parent].level + 1u != cells[cell].level || cells[parent].code != cells[cell].code >> 3)
            ++parent;
        if (_childCounts[parent]++ == 0) _firstChildren[parent] = cell;
    }
    for (size_t cell = cells.size(); cell-- > 0;) {
        for (const Segment& segment : cells[cell].segments)
            _subtreePoints[cell] += static_cast<uint64_t>(segment.count);
        for (auto [child, end] = children(cell); child < end; ++child)
            _subtreePoints[cell] += _subtreePoints[child];
    }
}

SpaceBox CellSpace::cube(unsigned level, const std::array<uint32_t, 3>& grid) const
{
    const double edge = std::ldexp(_cubeSize, -static_cast<int>(level));
    const uint32_t last = (1u << level) - 1;
    SpaceBox box;
    for (size_t axis = 0; axis < 3; ++axis) {
        box.min[axis] = grid[axis] == 0 ? -kInfinity : _cubeMin[axis] + grid[axis] * edge;
        box.max[axis] = grid[axis] == last ? kInfinity : _cubeMin[axis] + (grid[axis] + 1.0) * edge;
    }
    return box;
}

SpaceBox CellSpace::reach(size_t cell) const
{
    const double step = *std::max_element(_steps.begin(), _steps.end());
    return cube(_index.cells[cell].level, mortonDecode(_index.cells[cell].code)).grown(step);
}

bool CellSpace::readCell(size_t cell, const SpaceBox& box, std::vector<SpacePoint>& points) const
{
    std::vector<uint8_t> records;
    for (const Segment& segment : _index.cells[cell].segments)
        for (int64_t done = 0; done < segment.count;) {
            const int64_t first = segment.first + done;
            const auto count = static_cast<size_t>(std::min(kReadPoints, segment.count - done));
            records.resize(count * kPointSize);
            const int64_t position = _header.pointDataStart + first * static_cast<int64_t>(kPointSize);
            if (!_file.read(position, records.data(), records.size())) return false;
            for (size_t i = 0; i < count; ++i) {
                const uint8_t* const record = &records[i * kPointSize];
                const Position place = {loadLe<int32_t>(record + kX) * _steps[0],
                                        loadLe<int32_t>(record + kY) * _steps[1],
                                        loadLe<int32_t>(record + kZ) * _steps[2]};
                if (box.contains(place)) points.push_back({place, static_cast<uint64_t>(first) + i});
            }
            done += static_cast<int64_t>(count);
        }
    return true;
}

} // namespace VelBrx

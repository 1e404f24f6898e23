#pragma once

#include <VelBrx/CellWithSegment.h>
#include <VelBrx/File.h>
#include <VelThreads/Mutex.h>

#include <osg/observer_ptr>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

class CellData;

namespace VelBrx {
class EditJournal;
}

/// Number of points in the segments of a cell.
uint32_t countPoints(const std::vector<VelBrx::Segment>& segments);

/// What stays known of a cell when the octree that it was loaded with is gone. Made under the edit lock of
/// its store.
struct CellPlace
{
    explicit CellPlace(CellData& cellData);

    std::string identifier;
    std::string storePath;
    std::shared_ptr<VelBrx::File> file;           ///< the one that was edited, wherever its path leads by now
    std::shared_ptr<VelBrx::EditJournal> journal; ///< that its edits are in; null: in none
    int64_t pointDataStart;
    std::vector<VelBrx::Segment> segments;
    uint32_t pointCount;
    osg::observer_ptr<CellData> cell;
};

using CellPlacePtr = std::shared_ptr<const CellPlace>;

/// The classes of a cell's points, in the cell's point order.
using ClassesPtr = std::shared_ptr<const std::vector<uint8_t>>;

/// The classes that differ from the point records of their stores: what was edited and has not been written
/// there. Cells are known by their identifiers, which belong to a file on disk: a store that is open
/// twice, by whatever names, or closed and opened again shows the same classes, and a copy of it its own.
/// Process-wide; any thread may call it.
class UnwrittenClasses
{
public:
    struct Cell
    {
        CellPlacePtr place;
        ClassesPtr written; ///< as in the store's records
        ClassesPtr current; ///< as edited
    };

    static UnwrittenClasses& instance();

    /// The edited classes of a cell; null when its records have them.
    ClassesPtr current(const std::string& identifier) const;

    /// The whole entry; its members are null when there is none.
    Cell find(const std::string& identifier) const;

    /// Replaces the entry of the cell; drops it when nothing differs any more.
    void set(const Cell& cell);

    void forget(const std::string& identifier);

    std::vector<Cell> cells() const;

    /// Nothing differs from the stores.
    bool isEmpty() const;

private:
    UnwrittenClasses() = default;

    mutable VelThreads::Mutex _mutex;
    std::unordered_map<std::string, Cell> _cells VEL_GUARDED_BY(_mutex);
};

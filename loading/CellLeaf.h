#pragma once

#include <VelOsgUtils/SpinLock.h>
#include <VelThreads/Mutex.h>

#include <osg/Geode>
#include <osg/Vec3f>
#include <osg/observer_ptr>
#include <osg/ref_ptr>
#include <osgUtil/IncrementalCompileOperation>

#include <cstdint>
#include <vector>

class CellData;

/// The scene-graph leaf that holds one cell's geometry.
class CellLeaf : public osg::Geode
{
public:
    /// (level, key code) of the cell.
    class CellKey : public osg::Referenced
    {
    public:
        CellKey(uint8_t cellLevel, uint64_t cellCode) : level(cellLevel), code(cellCode) {}
        CellKey(const CellKey& other) : osg::Referenced(), level(other.level), code(other.code) {}

        const uint8_t level;
        const uint64_t code;

    protected:
        ~CellKey() override = default;
    };

    CellLeaf(const CellKey& key, const osg::Vec3f& boxMin, const osg::Vec3f& boxMax);

    int getLevel() const { return _key->level; }
    uint64_t getCode() const { return _key->code; }
    const osg::Vec3f& getBoxMin() const { return _boxMin; }
    const osg::Vec3f& getBoxMax() const { return _boxMax; }

    /// How far apart points are where no finer cell is loaded, local units: of this cell and of those above
    /// it together. Set before the leaf is shown.
    void setPointSpacing(float spacing) { _pointSpacing = spacing; }
    float pointSpacing() const { return _pointSpacing; }

    /// \name Paging state
    /// @{
    osg::observer_ptr<osgUtil::IncrementalCompileOperation::CompileSet>
        compileSet VEL_GUARDED_BY(lock); ///< set while pending
    osg::observer_ptr<CellData> cell VEL_GUARDED_BY(lock);
    VelOsgUtils::SpinLock lock;
    /// @}

protected:
    ~CellLeaf() override;

private:
    osg::Vec3f _boxMin; ///< local coordinates
    osg::Vec3f _boxMax;
    float _pointSpacing = 0;
    osg::ref_ptr<CellKey> _key;
};

#include "loading/CellLeaf.h"

#include <VelOsgDBBrx/CellData.h>

CellLeaf::CellLeaf(const CellKey& key, const osg::Vec3f& boxMin, const osg::Vec3f& boxMax)
    : _boxMin(boxMin), _boxMax(boxMax), _key(new CellKey(key))
{
}

CellLeaf::~CellLeaf() = default;

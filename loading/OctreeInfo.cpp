#include "loading/CellData.h"
#include "loading/CellTable.h"

OctreeInfo::OctreeInfo() = default;

OctreeInfo::~OctreeInfo() = default;

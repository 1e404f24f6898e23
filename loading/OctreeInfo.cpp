#include "loading/CellData.h"

OctreeInfo::OctreeInfo() = default;

OctreeInfo::~OctreeInfo() = default;

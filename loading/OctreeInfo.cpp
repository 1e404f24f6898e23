#include "loading/CellTable.h"
#include "loading/OctreeViews.h"

#include <VelOsgDBBrx/CellData.h>

OctreeInfo::OctreeInfo() : views(new OctreeViews) {}

OctreeInfo::~OctreeInfo() = default;

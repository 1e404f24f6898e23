#include "loading/CellData.h"
#include "loading/CellTable.h"
#include "loading/OctreeViews.h"

OctreeInfo::OctreeInfo() : views(new OctreeViews) {}

OctreeInfo::~OctreeInfo() = default;

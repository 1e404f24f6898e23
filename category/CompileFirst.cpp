#include "category/CompileFirst.h"

#include <VelOsgDBBrx/PCDataManager.h>

void compileFirst(VelOsgDBBrx::VelIncrementalCompileOperation& operation,
                  const std::vector<EditedCell>& cells)
{
    for (const EditedCell& cell : cells) {
        const osg::ref_ptr<osg::Node> leaf =
            VelOsgDBBrx::PCDataManager::getInstance()->acquireNode(cell.place->identifier);
        if (leaf) operation.pushFront(new osgUtil::IncrementalCompileOperation::CompileSet(leaf), true);
    }
}

#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Referenced>

namespace VelOsgDBBrx {

class LineEnHancement;

/// A host's own search for the points of a line: `LineEnHancement` runs it in place of its raster test.
class VEL_OSGDB_BRX_EXPORT Invoke : public osg::Referenced
{
public:
    Invoke() = default;
    Invoke(const Invoke& other) : osg::Referenced(other) {}

    /// Called once each time the command runs, on the command worker, when every command pushed earlier has
    /// run and none runs at the same time. It fills `command.getAllLineEnHancementPoint()`, which is empty
    /// then. It must not throw and must not wait for another command.
    virtual void invoke(LineEnHancement& command) = 0;

protected:
    ~Invoke() override = default;
};

} // namespace VelOsgDBBrx

#include <VelOsgDBBrx/FrameStamp.h>

#include <VelOsgDBBrx/CellData.h>

namespace VelOsgDBBrx {

FrameStamp::FrameStamp() = default;

FrameStamp::FrameStamp(const FrameStamp&) = default;

FrameStamp::~FrameStamp() = default;

bool FrameStamp::isSameKindAs(const osg::Object* object) const
{
    return dynamic_cast<const FrameStamp*>(object) != nullptr;
}

} // namespace VelOsgDBBrx

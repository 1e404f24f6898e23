#pragma once

#include <VelThreads/Mutex.h>

#include <osg/Camera>
#include <osg/Vec4>

/// Clears the whole window before the first camera of a frame is drawn, so that its cameras need not: a clear
/// of a part of a window costs a software renderer as much as drawing over it. A callback of each camera that
/// draws in the window.
///
/// Threads: any sets the colour; the thread that draws calls it.
class WindowClear : public osg::Camera::DrawCallback
{
public:
    /// For all cameras that draw in a window now: they clear nothing themselves from now on.
    void clearFor(osg::GraphicsContext& window);

    void setColor(const osg::Vec4& color);

    void operator()(osg::RenderInfo& renderInfo) const override;

protected:
    ~WindowClear() override = default;

private:
    mutable VelThreads::Mutex _mutex;
    osg::Vec4 _color VEL_GUARDED_BY(_mutex);
    mutable unsigned _frame VEL_GUARDED_BY(_mutex) = ~0u; ///< that was cleared for
};

#pragma once

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Export.h>
#include <VelThreads/Mutex.h>

#include <osg/GraphicsThread>

namespace VelOsgDBBrx {

/// Finds out whether OpenGL contexts can draw point clouds: OpenGL 4.3 with its compatibility profile, GLSL
/// 4.30. In a context that cannot, clouds draw nothing; the library says nothing of it by itself.
///
///     osg::ref_ptr<OpenGLCheck> check = new OpenGLCheck;
///     viewer.setRealizeOperation(check);
///     viewer.realize();
///     if (!check->status()) ...
///
/// Any thread may call `status`.
class VEL_OSGDB_BRX_EXPORT OpenGLCheck : public osg::GraphicsOperation
{
public:
    OpenGLCheck();

    /// Checks the context, which is current.
    void operator()(osg::GraphicsContext* context) override;

    /// The first failure among the contexts checked so far. It says what is needed and what is there.
    VelBrx::Status status() const;

    /// Checks the context that is current in this thread.
    static VelBrx::Status checkCurrent();

protected:
    ~OpenGLCheck() override = default;

private:
    mutable VelThreads::Mutex _mutex;
    VelBrx::Status _status VEL_GUARDED_BY(_mutex);
};

} // namespace VelOsgDBBrx

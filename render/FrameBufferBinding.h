#pragma once

#include <osg/ContextData>
#include <osg/FrameBufferObject>
#include <osg/GLExtensions>
#include <osg/State>

/// The frame buffers that OpenGL draws into and reads from at a moment. What a host bound need not be known
/// to `osg::State`, above all the frame buffer of its own camera.
struct FrameBufferBinding
{
    GLint draw = 0;
    GLint read = 0;

    static FrameBufferBinding current()
    {
        FrameBufferBinding binding;
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING_EXT, &binding.draw);
        glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING_EXT, &binding.read);
        return binding;
    }

    void bind(osg::State& state) const
    {
        osg::GLExtensions& extensions = *state.get<osg::GLExtensions>();
        extensions.glBindFramebuffer(GL_DRAW_FRAMEBUFFER_EXT, static_cast<GLuint>(draw));
        extensions.glBindFramebuffer(GL_READ_FRAMEBUFFER_EXT, static_cast<GLuint>(read));
    }
};

/// Binds a frame buffer that any thread may free. OpenSceneGraph's lists of what the thread that draws is to
/// delete are made here, on that thread: else whoever frees the first one makes them while that thread goes
/// through all lists.
inline void bind(const osg::FrameBufferObject& frameBuffer, osg::State& state,
                 osg::FrameBufferObject::BindTarget target = osg::FrameBufferObject::READ_DRAW_FRAMEBUFFER)
{
    (void)osg::get<osg::GLFrameBufferObjectManager>(state.getContextID());
    (void)osg::get<osg::GLRenderBufferManager>(state.getContextID());
    frameBuffer.apply(state, target);
}

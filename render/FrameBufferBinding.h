#pragma once

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

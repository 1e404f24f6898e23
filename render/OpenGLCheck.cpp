#include <VelOsgDBBrx/OpenGLCheck.h>

#include "render/OpenGLSupport.h"

#include <VelThreads/Mutex.h>

#include <osg/GL>
#include <osg/GLExtensions>

#include <atomic>
#include <cstdlib>
#include <set>
#include <string>

#ifndef GL_CONTEXT_PROFILE_MASK
#define GL_CONTEXT_PROFILE_MASK 0x9126
#endif
#ifndef GL_CONTEXT_COMPATIBILITY_PROFILE_BIT
#define GL_CONTEXT_COMPATIBILITY_PROFILE_BIT 0x00000002
#endif

using VelBrx::Status;

namespace {

constexpr double kOpenGL = 4.3; ///< version, of the shading language too

/// Versions are compared as numbers with one decimal.
bool isEnough(double version)
{
    return version > kOpenGL - 0.05;
}

std::string text(GLenum name)
{
    const GLubyte* const value = glGetString(name);
    return value ? reinterpret_cast<const char*>(value) : "";
}

double number(const std::string& version)
{
    return std::strtod(version.c_str(), nullptr);
}

bool hasCompatibilityProfile()
{
    GLint profiles = 0;
    glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &profiles);
    return profiles & GL_CONTEXT_COMPATIBILITY_PROFILE_BIT;
}

/// The contexts whose OpenGL is too old. Draw threads find that out, cull threads ask for it.
class LackingContexts
{
public:
    void add(unsigned context)
    {
        const VelThreads::Lock lock(_mutex);
        _contexts.insert(context);
        _isEmpty = false;
    }
    void remove(unsigned context)
    {
        if (_isEmpty) return;
        const VelThreads::Lock lock(_mutex);
        _contexts.erase(context);
        _isEmpty = _contexts.empty();
    }
    bool has(unsigned context) const
    {
        if (_isEmpty) return false;
        const VelThreads::Lock lock(_mutex);
        return _contexts.count(context) > 0;
    }

private:
    std::atomic<bool> _isEmpty{true}; ///< nearly always: then nobody takes the lock
    mutable VelThreads::Mutex _mutex;
    std::set<unsigned> _contexts VEL_GUARDED_BY(_mutex);
};

LackingContexts& lackingContexts()
{
    static LackingContexts& contexts = *new LackingContexts; // contexts may be closed while the process ends
    return contexts;
}

} // namespace

bool lacksOpenGL(osg::State& state)
{
    const osg::GLExtensions& extensions = *state.get<osg::GLExtensions>();
    const bool lacks = !isEnough(extensions.glVersion) || !isEnough(extensions.glslLanguageVersion);
    if (lacks) lackingContexts().add(state.getContextID());
    return lacks;
}

bool isKnownToLackOpenGL(const osg::State& state)
{
    return lackingContexts().has(state.getContextID());
}

void forgetOpenGL(const osg::State& state)
{
    lackingContexts().remove(state.getContextID());
}

namespace VelOsgDBBrx {

OpenGLCheck::OpenGLCheck() : osg::Referenced(true), osg::GraphicsOperation("OpenGLCheck", false) {}

void OpenGLCheck::operator()(osg::GraphicsContext*)
{
    Status found = checkCurrent();
    const VelThreads::Lock lock(_mutex);
    if (_status) _status = std::move(found);
}

Status OpenGLCheck::status() const
{
    const VelThreads::Lock lock(_mutex);
    return _status;
}

Status OpenGLCheck::checkCurrent()
{
    const std::string version = text(GL_VERSION);
    const std::string language = text(GL_SHADING_LANGUAGE_VERSION);
    if (isEnough(number(version)) && isEnough(number(language)) && hasCompatibilityProfile()) return {};
    const std::string there = version.empty() ? "there is none"
                                              : text(GL_RENDERER) + " has " + version + ", GLSL " +
                                                    (language.empty() ? "none" : language);
    return Status::failure("points need OpenGL 4.3 with its compatibility profile and GLSL 4.30, but " +
                           there + "; update the graphics driver or use another one");
}

} // namespace VelOsgDBBrx

#include "headless/EglGraphicsWindow.h"

#include "headless/EglDisplays.h"

#include <EGL/eglext.h>
#include <dlfcn.h>
#include <osg/GL>

#include <cstdio>

namespace {

/// OpenSceneGraph finds GL entry points in the global scope of the process, which a program that got here
/// through dlopen does not have libGL in.
void putLibGlInGlobalScope()
{
    static void* const library = dlopen("libGL.so.1", RTLD_LAZY | RTLD_GLOBAL);
    (void)library;
}

EGLConfig chooseConfig(EGLDisplay display, const osg::GraphicsContext::Traits& traits)
{
    const EGLint attributes[] = {EGL_SURFACE_TYPE,
                                 EGL_PBUFFER_BIT,
                                 EGL_RENDERABLE_TYPE,
                                 EGL_OPENGL_BIT,
                                 EGL_RED_SIZE,
                                 static_cast<EGLint>(traits.red),
                                 EGL_GREEN_SIZE,
                                 static_cast<EGLint>(traits.green),
                                 EGL_BLUE_SIZE,
                                 static_cast<EGLint>(traits.blue),
                                 EGL_ALPHA_SIZE,
                                 static_cast<EGLint>(traits.alpha),
                                 EGL_DEPTH_SIZE,
                                 static_cast<EGLint>(traits.depth),
                                 EGL_STENCIL_SIZE,
                                 static_cast<EGLint>(traits.stencil),
                                 EGL_SAMPLE_BUFFERS,
                                 traits.samples > 0 ? 1 : 0,
                                 EGL_SAMPLES,
                                 static_cast<EGLint>(traits.samples),
                                 EGL_NONE};
    EGLConfig config = nullptr;
    EGLint count = 0;
    return eglChooseConfig(display, attributes, &config, 1, &count) && count > 0 ? config : nullptr;
}

/// Restores the calling thread's EGL context.
class CurrentContextGuard
{
public:
    ~CurrentContextGuard()
    {
        if (_display != EGL_NO_DISPLAY) eglMakeCurrent(_display, _draw, _read, _context);
    }

private:
    const EGLDisplay _display = eglGetCurrentDisplay();
    const EGLSurface _draw = eglGetCurrentSurface(EGL_DRAW);
    const EGLSurface _read = eglGetCurrentSurface(EGL_READ);
    const EGLContext _context = eglGetCurrentContext();
};

} // namespace

osg::ref_ptr<EglGraphicsWindow> EglGraphicsWindow::create(osg::GraphicsContext::Traits* traits,
                                                          std::string& reason)
{
    putLibGlInGlobalScope();
    if (!traits || traits->width <= 0 || traits->height <= 0) {
        reason = "a picture needs a width and a height";
        return nullptr;
    }
    for (const EglDisplay& display : eglDisplays(reason)) {
        std::string failure;
        const osg::ref_ptr<EglGraphicsWindow> window = new EglGraphicsWindow(traits, display.handle);
        if (window->initialize(failure)) return window;
        reason += (reason.empty() ? "" : "; ") + display.name + ": " + failure;
    }
    return nullptr;
}

osg::ref_ptr<EglGraphicsWindow> EglGraphicsWindow::create(int width, int height, std::string& reason)
{
    const osg::ref_ptr<osg::GraphicsContext::Traits> traits = new osg::GraphicsContext::Traits;
    traits->width = width;
    traits->height = height;
    traits->red = traits->green = traits->blue = traits->alpha = 8;
    traits->depth = 24;
    traits->stencil = 8;
    return create(traits, reason);
}

EglGraphicsWindow::EglGraphicsWindow(osg::GraphicsContext::Traits* traits, EGLDisplay display)
    : _display(display), _width(traits->width), _height(traits->height), _wantedWidth(traits->width),
      _wantedHeight(traits->height)
{
    _traits = traits;
}

EglGraphicsWindow::~EglGraphicsWindow()
{
    close(true);
}

bool EglGraphicsWindow::initialize(std::string& reason)
{
    _config = chooseConfig(_display, *_traits);
    if (!_config) {
        reason = "no pixel format has the wanted colour, depth and sample bits";
        return false;
    }
    EGLint widest = 0;
    EGLint highest = 0;
    eglGetConfigAttrib(_display, _config, EGL_MAX_PBUFFER_WIDTH, &widest);
    eglGetConfigAttrib(_display, _config, EGL_MAX_PBUFFER_HEIGHT, &highest);
    if (_traits->width > widest || _traits->height > highest) {
        reason = "the largest picture is " + std::to_string(widest) + " x " + std::to_string(highest);
        return false;
    }
    const auto* shared = dynamic_cast<EglGraphicsWindow*>(_traits->sharedContext.get());
    if (_traits->sharedContext.valid() && (!shared || shared->_display != _display)) {
        reason = "the context to share with is not on this display";
        return false;
    }
    _context = createContext(_config, shared ? shared->_context : EGL_NO_CONTEXT);
    _surface = _context == EGL_NO_CONTEXT ? EGL_NO_SURFACE : createSurface(_traits->width, _traits->height);
    if (_context == EGL_NO_CONTEXT || _surface == EGL_NO_SURFACE || !checkContext(reason)) {
        if (reason.empty()) {
            reason = _context == EGL_NO_CONTEXT ? "no OpenGL 4.3 compatibility context"
                                                : "no drawing surface of " + std::to_string(_traits->width) +
                                                      " x " + std::to_string(_traits->height);
        }
        closeImplementation();
        return false;
    }

    setState(new osg::State);
    getState()->setGraphicsContext(this);
    if (shared) {
        getState()->setContextID(shared->getState()->getContextID());
        incrementContextIDUsageCount(getState()->getContextID());
    } else {
        getState()->setContextID(createNewContextID());
    }
    getEventQueue()->syncWindowRectangleWithGraphicsContext();
    return true;
}

EGLContext EglGraphicsWindow::createContext(EGLConfig config, EGLContext shared) const
{
    // The bound API is a property of the thread.
    if (!eglBindAPI(EGL_OPENGL_API)) return EGL_NO_CONTEXT;
    const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                 4,
                                 EGL_CONTEXT_MINOR_VERSION,
                                 3,
                                 EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                 EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT,
                                 EGL_NONE};
    return eglCreateContext(_display, config, shared, attributes);
}

EGLSurface EglGraphicsWindow::createSurface(int width, int height) const
{
    const EGLint attributes[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
    return eglCreatePbufferSurface(_display, _config, attributes);
}

bool EglGraphicsWindow::checkContext(std::string& reason)
{
    const CurrentContextGuard guard;
    if (!eglMakeCurrent(_display, _surface, _surface, _context)) {
        reason = "the OpenGL context cannot be made current";
        return false;
    }
    GLint buffer = GL_BACK;
    glGetIntegerv(GL_DRAW_BUFFER, &buffer);
    _traits->doubleBuffer = buffer == GL_BACK;
    eglMakeCurrent(_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    return true;
}

void EglGraphicsWindow::attachTo(osg::Camera& camera)
{
    camera.setGraphicsContext(this);
    camera.setViewport(0, 0, _traits->width, _traits->height);
    camera.setDrawBuffer(drawBuffer());
    camera.setReadBuffer(drawBuffer());
}

bool EglGraphicsWindow::realizeImplementation()
{
    _realized = valid();
    return _realized;
}

void EglGraphicsWindow::closeImplementation()
{
    if (_context != EGL_NO_CONTEXT && eglGetCurrentContext() == _context) {
        eglMakeCurrent(_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
    if (_surface != EGL_NO_SURFACE) eglDestroySurface(_display, _surface);
    if (_context != EGL_NO_CONTEXT) eglDestroyContext(_display, _context);
    _surface = EGL_NO_SURFACE;
    _context = EGL_NO_CONTEXT;
    _realized = false;
}

bool EglGraphicsWindow::makeCurrentImplementation()
{
    if (!_realized || !eglBindAPI(EGL_OPENGL_API)) return false;
    replaceSurfaceWhenResized();
    return eglMakeCurrent(_display, _surface, _surface, _context);
}

bool EglGraphicsWindow::makeContextCurrentImplementation(osg::GraphicsContext* readContext)
{
    const auto* source = dynamic_cast<EglGraphicsWindow*>(readContext);
    if (!_realized || !source || source->_display != _display || !eglBindAPI(EGL_OPENGL_API)) return false;
    replaceSurfaceWhenResized();
    return eglMakeCurrent(_display, _surface, source->_surface, _context);
}

bool EglGraphicsWindow::releaseContextImplementation()
{
    return eglMakeCurrent(_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
}

void EglGraphicsWindow::bindPBufferToTextureImplementation(GLenum)
{
    OSG_WARN << "EglGraphicsWindow: binding the buffer to a texture is not supported" << std::endl;
}

void EglGraphicsWindow::swapBuffersImplementation()
{
    // A draw thread keeps its context current from frame to frame: here is where it can take over a new size.
    glFlush();
    replaceSurfaceWhenResized();
}

void EglGraphicsWindow::replaceSurfaceWhenResized()
{
    const VelThreads::Lock lock(_sizeMutex);
    if (_width == _wantedWidth && _height == _wantedHeight) return;
    const EGLSurface surface = createSurface(_wantedWidth, _wantedHeight);
    if (surface == EGL_NO_SURFACE) {
        OSG_WARN << "EglGraphicsWindow: no surface of " << _wantedWidth << " x " << _wantedHeight
                 << std::endl;
        _wantedWidth = _width;
        _wantedHeight = _height;
        return;
    }
    if (eglGetCurrentContext() == _context) eglMakeCurrent(_display, surface, surface, _context);
    eglDestroySurface(_display, _surface);
    _surface = surface;
    _width = _wantedWidth;
    _height = _wantedHeight;
}

bool EglGraphicsWindow::setWindowRectangleImplementation(int, int, int width, int height)
{
    if (width <= 0 || height <= 0) return false;
    const VelThreads::Lock lock(_sizeMutex);
    _wantedWidth = width;
    _wantedHeight = height;
    return true;
}

#pragma once

#include <VelThreads/Mutex.h>

#include <EGL/egl.h>
#include <osg/ref_ptr>
#include <osgViewer/GraphicsWindow>

#include <string>

/// A graphics window without a window system: it draws into an EGL pixel buffer, and takes its events from
/// its event queue alone. OpenGL 4.3 compatibility profile or later.
///
/// Threads: made, resized and closed on the thread of the viewer; made current, released and swapped on
/// whichever thread draws, as `osg::GraphicsContext` asks. Works in every threading model of the viewer.
class EglGraphicsWindow : public osgViewer::GraphicsWindow
{
public:
    /// A window as `traits` ask: size, colour and depth bits, samples, shared context. The traits become the
    /// window's own, with what the driver gives (`doubleBuffer`) written back. Null when none can be made;
    /// `reason` then says why in one line.
    static osg::ref_ptr<EglGraphicsWindow> create(osg::GraphicsContext::Traits* traits, std::string& reason);

    /// A window of `width` x `height` pixels with 8 bits a colour, 24 bits of depth and 8 of stencil.
    static osg::ref_ptr<EglGraphicsWindow> create(int width, int height, std::string& reason);

    /// The buffer that cameras draw into and pictures are read from: GL_BACK or GL_FRONT.
    GLenum drawBuffer() const { return _traits->doubleBuffer ? GL_BACK : GL_FRONT; }

    /// Lets `camera` draw into the whole of this window.
    void attachTo(osg::Camera& camera);

    const char* libraryName() const override { return "velbrx"; }
    const char* className() const override { return "EglGraphicsWindow"; }

    bool valid() const override { return _context != EGL_NO_CONTEXT; }
    bool realizeImplementation() override;
    bool isRealizedImplementation() const override { return _realized; }
    void closeImplementation() override;
    bool makeCurrentImplementation() override;
    bool makeContextCurrentImplementation(osg::GraphicsContext* readContext) override;
    bool releaseContextImplementation() override;
    void bindPBufferToTextureImplementation(GLenum buffer) override;
    void swapBuffersImplementation() override;

    /// The new size holds from the next frame that is begun; a frame being drawn ends at the old size.
    bool setWindowRectangleImplementation(int x, int y, int width, int height) override;

    /// \name What only a window on a screen has
    /// @{
    void grabFocus() override {}
    void grabFocusIfPointerInWindow() override {}
    void raiseWindow() override {}
    void setWindowName(const std::string&) override {}
    void useCursor(bool) override {}
    void setCursor(MouseCursor) override {}
    /// @}

protected:
    ~EglGraphicsWindow() override;

private:
    EglGraphicsWindow(osg::GraphicsContext::Traits* traits, EGLDisplay display);

    /// Makes context and surface and reads what they can do; false with `reason` when they cannot do enough.
    bool initialize(std::string& reason);
    EGLContext createContext(EGLConfig config, EGLContext shared) const;
    EGLSurface createSurface(int width, int height) const;
    bool checkContext(std::string& reason);
    void replaceSurfaceWhenResized();

    const EGLDisplay _display; ///< stays open as long as the process
    EGLConfig _config = nullptr;
    EGLContext _context = EGL_NO_CONTEXT;
    EGLSurface _surface = EGL_NO_SURFACE; ///< used by the drawing thread only, once realized
    bool _realized = false;

    VelThreads::Mutex _sizeMutex;
    int _width VEL_GUARDED_BY(_sizeMutex) = 0; ///< of the surface
    int _height VEL_GUARDED_BY(_sizeMutex) = 0;
    int _wantedWidth VEL_GUARDED_BY(_sizeMutex) = 0; ///< asked for by the viewer's thread
    int _wantedHeight VEL_GUARDED_BY(_sizeMutex) = 0;
};

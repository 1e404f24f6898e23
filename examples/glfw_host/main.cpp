// A host whose window and OpenGL context are not OpenSceneGraph's: GLFW has them, and a viewer draws into
// them. It draws on demand. With a second argument it writes the first complete picture to a file and ends.
#include <VelOsgDBBrx/ContextServices.h>
#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/OpenCloud.h>
#include <VelOsgDBBrx/OpenGLCheck.h>
#include <VelOsgDBBrx/PCViewerManager.h>

#include <osgDB/WriteFile>
#include <osgGA/TrackballManipulator>
#include <osgViewer/Viewer>

#define GLFW_INCLUDE_NONE
#include <GLFW/glfw3.h>

#include <algorithm>
#include <iostream>
#include <memory>

using namespace VelOsgDBBrx;

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;

/// GLFW as long as this object lives.
struct Glfw
{
    const bool isThere = glfwInit() == GLFW_TRUE;
    ~Glfw() { glfwTerminate(); }
};

using Window = std::unique_ptr<GLFWwindow, decltype(&glfwDestroyWindow)>;

Window openWindow()
{
    glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 4);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 3);
    glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_COMPAT_PROFILE);
    Window window(glfwCreateWindow(kWidth, kHeight, "GLFW", nullptr, nullptr), glfwDestroyWindow);
    if (window) glfwMakeContextCurrent(window.get());
    return window;
}

/// Wakes the window's loop when a frame is due, from whichever thread.
class WakingViewer : public osgViewer::Viewer
{
public:
    void requestRedraw() override
    {
        osgViewer::Viewer::requestRedraw();
        glfwPostEmptyEvent();
    }
};

osgViewer::Viewer& viewerOf(GLFWwindow* window)
{
    return *static_cast<osgViewer::Viewer*>(glfwGetWindowUserPointer(window));
}

/// Those of the viewer's window, not its own: it looks there whether a frame is due.
osgGA::EventQueue& eventsOf(GLFWwindow* window)
{
    osg::GraphicsContext* const context = viewerOf(window).getCamera()->getGraphicsContext();
    return *static_cast<osgViewer::GraphicsWindow*>(context)->getEventQueue();
}

/// Where the cursor is, in pixels: a window's own units may be larger.
osg::Vec2 cursorOf(GLFWwindow* window)
{
    double x = 0, y = 0;
    int width = 0, pixels = 0;
    glfwGetCursorPos(window, &x, &y);
    glfwGetWindowSize(window, &width, nullptr);
    glfwGetFramebufferSize(window, &pixels, nullptr);
    const double scale = double(pixels) / std::max(width, 1);
    return {float(x * scale), float(y * scale)};
}

void onButton(GLFWwindow* window, int button, int action, int)
{
    if (button > GLFW_MOUSE_BUTTON_MIDDLE) return;
    const unsigned osgButton = button == GLFW_MOUSE_BUTTON_LEFT     ? 1
                               : button == GLFW_MOUSE_BUTTON_MIDDLE ? 2
                                                                    : 3;
    const osg::Vec2 place = cursorOf(window);
    if (action == GLFW_PRESS)
        eventsOf(window).mouseButtonPress(place.x(), place.y(), osgButton);
    else
        eventsOf(window).mouseButtonRelease(place.x(), place.y(), osgButton);
}

void onMove(GLFWwindow* window, double, double)
{
    const osg::Vec2 place = cursorOf(window);
    eventsOf(window).mouseMotion(place.x(), place.y());
}

void onScroll(GLFWwindow* window, double, double up)
{
    eventsOf(window).mouseScroll(up > 0 ? osgGA::GUIEventAdapter::SCROLL_UP
                                        : osgGA::GUIEventAdapter::SCROLL_DOWN);
}

/// Space: home.
void onCharacter(GLFWwindow* window, unsigned character)
{
    eventsOf(window).keyPress(int(character));
    eventsOf(window).keyRelease(int(character));
}

void onSize(GLFWwindow* window, int width, int height)
{
    if (width == 0 || height == 0) return; // it is an icon now
    osgViewer::Viewer& viewer = viewerOf(window);
    viewer.getCamera()->getGraphicsContext()->resized(0, 0, width, height);
    eventsOf(window).windowResize(0, 0, width, height);
    viewer.requestRedraw();
}

void onUncovered(GLFWwindow* window)
{
    viewerOf(window).requestRedraw();
}

/// The window's events become those of the viewer, which must outlive them.
void connect(GLFWwindow* window, osgViewer::Viewer& viewer)
{
    glfwSetWindowUserPointer(window, &viewer);
    glfwSetMouseButtonCallback(window, onButton);
    glfwSetCursorPosCallback(window, onMove);
    glfwSetScrollCallback(window, onScroll);
    glfwSetCharCallback(window, onCharacter);
    glfwSetFramebufferSizeCallback(window, onSize);
    glfwSetWindowRefreshCallback(window, onUncovered);
}

/// From the south, obliquely downwards.
osg::ref_ptr<osgGA::CameraManipulator> makeManipulator(const osg::BoundingSphere& bound)
{
    const osg::ref_ptr<osgGA::TrackballManipulator> manipulator = new osgGA::TrackballManipulator;
    const osg::Vec3d aside = osg::Vec3d(0, -2, 1.5) * bound.radius();
    manipulator->setHomePosition(bound.center() + aside, bound.center(), osg::Vec3d(0, 0, 1));
    return manipulator;
}

/// Writes what was drawn last.
bool writePicture(const std::string& path, const osg::Viewport& viewport)
{
    const osg::ref_ptr<osg::Image> picture = new osg::Image;
    picture->readPixels(0, 0, int(viewport.width()), int(viewport.height()), GL_RGB, GL_UNSIGNED_BYTE);
    return osgDB::writeImageFile(*picture, path);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3) {
        std::cerr << "usage: glfw_host STORE.brx [PICTURE.png]\n";
        return 1;
    }
    OpenedCloud opened;
    if (const VelBrx::Status status = openCloud(argv[1], OpenOptions(), opened); !status) {
        std::cerr << "glfw_host: " << status.message() << "\n";
        return 1;
    }
    DefaultDisplay::apply(opened.cloud, opened.statistics);

    const Glfw glfw;
    const Window window = glfw.isThere ? openWindow() : Window(nullptr, glfwDestroyWindow);
    if (!window) {
        std::cerr << "glfw_host: no window with OpenGL 4.3 can be opened\n";
        return 1;
    }
    if (const VelBrx::Status status = OpenGLCheck::checkCurrent(); !status) {
        std::cerr << "glfw_host: " << status.message() << "\n";
        return 1;
    }

    int width = 0, height = 0;
    glfwGetFramebufferSize(window.get(), &width, &height);
    const osg::ref_ptr<osgViewer::Viewer> viewer = new WakingViewer;
    osg::GraphicsContext* const context = viewer->setUpViewerAsEmbeddedInWindow(0, 0, width, height);
    viewer->setThreadingModel(osgViewer::ViewerBase::SingleThreaded); // the context is current on this thread
    viewer->setRunFrameScheme(osgViewer::ViewerBase::ON_DEMAND);
    viewer->setCameraManipulator(makeManipulator(opened.node->getBound()));
    viewer->setSceneData(opened.node);
    connect(window.get(), *viewer);
    viewer->realize();
    const ContextServices services(context); // ends before the viewer, and that before the window
    PCViewerManager::getInstance()->registerViewer(viewer, "main");

    int result = 0;
    bool isPictureMissing = argc == 3;
    while (!glfwWindowShouldClose(window.get()) && !viewer->done()) {
        if (!viewer->checkNeedToDoFrame() && !isPictureMissing) {
            glfwWaitEvents();
            continue;
        }
        glfwPollEvents();
        viewer->frame();
        if (isPictureMissing && services.isSettled()) {
            isPictureMissing = false;
            result = writePicture(argv[2], *viewer->getCamera()->getViewport()) ? 0 : 1;
            glfwSetWindowShouldClose(window.get(), GLFW_TRUE);
        }
        glfwSwapBuffers(window.get());
    }
    PCViewerManager::getInstance()->unRegisterViewer("main");
    return result;
}

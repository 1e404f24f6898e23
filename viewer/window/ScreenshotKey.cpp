#include "viewer/window/ScreenshotKey.h"

#include "headless/PictureFile.h"

#include <osg/GraphicsContext>
#include <osg/Image>
#include <osg/RenderInfo>

#include <atomic>
#include <cstdio>
#include <filesystem>

namespace {

std::string nextFreeName()
{
    std::string path;
    std::error_code error;
    int number = 0;
    do {
        path = "brxview-" + std::to_string(++number) + ".png";
    } while (std::filesystem::exists(path, error));
    return path;
}

void save(const osg::Image& picture)
{
    const std::string path = nextFreeName();
    std::string reason;
    const bool written = writePicture(picture, path, reason);
    std::fprintf(stderr, written ? "brxview: saved %s\n" : "brxview: %s\n",
                 written ? path.c_str() : reason.c_str());
}

} // namespace

/// Reads and saves the next picture that is drawn, when it is asked to.
class ScreenshotKey::Capture : public osg::Camera::DrawCallback
{
public:
    void request() { _requested = true; }

    void operator()(osg::RenderInfo& renderInfo) const override
    {
        const osg::GraphicsContext* context = renderInfo.getState()->getGraphicsContext();
        const osg::GraphicsContext::Traits* window = context ? context->getTraits() : nullptr;
        if (!window || !_requested.exchange(false)) return;
        const osg::ref_ptr<osg::Image> picture = new osg::Image;
        picture->readPixels(0, 0, window->width, window->height, GL_RGB, GL_UNSIGNED_BYTE);
        save(*picture);
    }

private:
    mutable std::atomic<bool> _requested{false};
};

ScreenshotKey::ScreenshotKey(osg::Camera& camera) : _capture(new Capture)
{
    camera.addFinalDrawCallback(_capture);
}

bool ScreenshotKey::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getHandled() || event.getEventType() != osgGA::GUIEventAdapter::KEYDOWN ||
        event.getKey() != osgGA::GUIEventAdapter::KEY_F9) {
        return false;
    }
    _capture->request();
    action.requestRedraw();
    return true;
}

void ScreenshotKey::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("F9", "Save the picture as brxview-N.png");
}

#include <VelOsgDBBrx/PointPicker.h>

#include "render/FrameBufferBinding.h"
#include "render/PointPrograms.h"

#include <osg/GLDefines>
#include <osg/RenderInfo>
#include <osg/Viewport>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <cmath>
#include <vector>

namespace VelOsgDBBrx {

namespace {

/// How a colour target is stored and read back.
struct TargetFormat
{
    GLint internalFormat;
    GLenum format;
    GLenum type;
};

constexpr TargetFormat kFormats[] = {{GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE},
                                     {GL_RGBA32UI_EXT, GL_RGBA_INTEGER_EXT, GL_UNSIGNED_INT},
                                     {GL_RGBA32F_ARB, GL_RGBA, GL_FLOAT},
                                     {GL_RGBA32F_ARB, GL_RGBA, GL_FLOAT},
                                     {GL_RGBA32I_EXT, GL_RGBA_INTEGER_EXT, GL_INT}};

osg::ref_ptr<osg::Texture2D> makeTexture(const TargetFormat& target, int width, int height)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(width, height);
    texture->setInternalFormat(target.internalFormat);
    texture->setSourceFormat(target.format);
    texture->setSourceType(target.type);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    return texture;
}

osg::Camera::BufferComponent colorBuffer(size_t index)
{
    return static_cast<osg::Camera::BufferComponent>(osg::Camera::COLOR_BUFFER0 + index);
}

/// A rectangle of pixels.
struct PixelWindow
{
    int x, y, width, height;

    size_t size() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
};

PixelWindow windowAround(int x, int y, int radius, int width, int height)
{
    const int left = std::clamp(x - radius, 0, width);
    const int bottom = std::clamp(y - radius, 0, height);
    return {left, bottom, std::clamp(x + radius + 1, left, width) - left,
            std::clamp(y + radius + 1, bottom, height) - bottom};
}

template <typename Value>
std::vector<std::array<Value, 4>> readTarget(size_t index, const PixelWindow& window)
{
    std::vector<std::array<Value, 4>> pixels(window.size());
    glReadBuffer(GL_COLOR_ATTACHMENT0_EXT + static_cast<GLenum>(index));
    glReadPixels(window.x, window.y, window.width, window.height, kFormats[index].format,
                 kFormats[index].type, pixels.data());
    return pixels;
}

/// The pixels of a window of the four targets behind the colour.
struct PickPixels
{
    explicit PickPixels(const PixelWindow& pixelWindow)
        : window(pixelWindow), identifiers(readTarget<GLuint>(1, window)),
          times(readTarget<GLfloat>(2, window)), fractions(readTarget<GLfloat>(3, window)),
          integers(readTarget<GLint>(4, window))
    {
    }

    /// Every point pixel carries these marks; cleared pixels and other things do not.
    bool isPoint(size_t i) const
    {
        return identifiers[i][2] == 4294967294u && identifiers[i][3] == 4294967295u && times[i][3] == 2.0f &&
               fractions[i][3] == -1.0f && integers[i][3] == -1;
    }

    PickedPoint point(size_t i) const
    {
        constexpr double kFractionSteps = 1E8;
        PickedPoint point;
        for (size_t axis = 0; axis < 3; ++axis)
            point.position[static_cast<int>(axis)] =
                integers[i][axis] + static_cast<double>(fractions[i][axis]) / kFractionSteps;
        point.gpsTime = times[i][0];
        point.cloudId = identifiers[i][0] | static_cast<uint64_t>(identifiers[i][1]) << 32;
        point.x = window.x + static_cast<int>(i) % window.width;
        point.y = window.y + static_cast<int>(i) / window.width;
        return point;
    }

    PixelWindow window;
    std::vector<std::array<GLuint, 4>> identifiers;
    std::vector<std::array<GLfloat, 4>> times;
    std::vector<std::array<GLfloat, 4>> fractions;
    std::vector<std::array<GLint, 4>> integers;
};

std::optional<PickedPoint> nearestPoint(const PickPixels& pixels, int x, int y)
{
    std::optional<PickedPoint> nearest;
    const auto distance = [x, y](const PickedPoint& point) {
        return (point.x - x) * (point.x - x) + (point.y - y) * (point.y - y);
    };
    for (size_t i = 0; i < pixels.window.size(); ++i) {
        if (!pixels.isPoint(i)) continue;
        const PickedPoint point = pixels.point(i);
        if (!nearest || distance(point) < distance(*nearest)) nearest = point;
    }
    return nearest;
}

/// Points are drawn only where their middle is in the viewport: those of up to 64 pixels reach so far.
constexpr int kLargestReach = 32;

/// Side of what is drawn around a pixel for an answer within `radius`.
int sideAround(int radius)
{
    return 2 * (radius + kLargestReach) + 1;
}

} // namespace

PickAttachments::PickAttachments(int width, int height)
    : _width(width), _height(height), _reading(new osg::FrameBufferObject)
{
    for (size_t i = 0; i < _textures.size(); ++i) {
        _textures[i] = makeTexture(kFormats[i], width, height);
        _reading->setAttachment(colorBuffer(i), osg::FrameBufferAttachment(_textures[i]));
    }
}

void PickAttachments::attachTo(osg::Camera& camera) const
{
    camera.setRenderTargetImplementation(osg::Camera::FRAME_BUFFER_OBJECT);
    camera.attach(osg::Camera::DEPTH_BUFFER, GL_DEPTH_COMPONENT24);
    for (size_t i = 0; i < _textures.size(); ++i)
        camera.attach(colorBuffer(i), _textures[i]);
    camera.dirtyAttachmentMap();
}

std::optional<PickedPoint> PickAttachments::read(osg::State& state, int x, int y, int radius) const
{
    const PixelWindow window = windowAround(x, y, radius, _width, _height);
    if (window.size() == 0) return std::nullopt;
    const FrameBufferBinding before = FrameBufferBinding::current();
    bind(*_reading, state, osg::FrameBufferObject::READ_FRAMEBUFFER);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    const PickPixels pixels(window);
    before.bind(state);
    return nearestPoint(pixels, x, y);
}

/// Draws the observed scene without being its parent: the scene keeps one path to its root.
class PointPicker::SceneCamera : public osg::Camera
{
public:
    explicit SceneCamera(osg::Node* scene) : _scene(scene) {}

    void traverse(osg::NodeVisitor& visitor) override
    {
        osg::ref_ptr<osg::Node> scene;
        if (_scene.lock(scene)) scene->accept(visitor);
    }

private:
    osg::observer_ptr<osg::Node> _scene;
};

class PointPicker::ReadCallback : public osg::Camera::DrawCallback
{
public:
    explicit ReadCallback(PointPicker* picker) : _picker(picker) {}

    void operator()(osg::RenderInfo& renderInfo) const override
    {
        osg::ref_ptr<PointPicker> picker;
        if (_picker.lock(picker)) picker->answer(*renderInfo.getState());
    }

private:
    osg::observer_ptr<PointPicker> _picker;
};

PointPicker::PointPicker(osg::Node* scene, int radius)
    : _radius(std::max(radius, 0)),
      _attachments(new PickAttachments(sideAround(_radius), sideAround(_radius))),
      _camera(new SceneCamera(scene))
{
    _camera->setRenderOrder(osg::Camera::PRE_RENDER);
    _camera->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    _camera->setViewport(0, 0, sideAround(_radius), sideAround(_radius));
    _camera->setClearMask(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    _camera->setClearColor(osg::Vec4(0, 0, 0, 0)); // the only one that integer targets can be cleared to
    _camera->setImplicitBufferAttachmentMask(0, 0);
    _camera->setPostDrawCallback(new ReadCallback(this));
    _camera->getOrCreateStateSet()->setAttributeAndModes(pointProgram(PointProgram::Occluder));
    _attachments->attachTo(*_camera);
    setCullingActive(false);
    addChild(_camera);
}

bool PointPicker::request(osg::Camera& camera, double x, double y)
{
    const osg::Viewport* viewport = camera.getViewport();
    if (!viewport || viewport->width() <= 0 || viewport->height() <= 0) return false;
    Request asked;
    asked.camera = &camera;
    asked.view = camera.getViewMatrix();
    asked.x = static_cast<int>(std::floor(x));
    asked.y = static_cast<int>(std::floor(y));
    // The same pixels as the camera's: the one asked for goes to the middle, and those around it fill the
    // view.
    const double pixels = sideAround(_radius);
    const double middleX = 2 * (asked.x + 0.5 - viewport->x()) / viewport->width() - 1;
    const double middleY = 2 * (asked.y + 0.5 - viewport->y()) / viewport->height() - 1;
    asked.projection = camera.getProjectionMatrix() * osg::Matrixd::translate(-middleX, -middleY, 0) *
                       osg::Matrixd::scale(viewport->width() / pixels, viewport->height() / pixels, 1);

    const VelThreads::Lock lock(_mutex);
    _waiting = asked;
    _answered = false;
    return true;
}

bool PointPicker::takeAnswer(std::optional<PickedPoint>& point)
{
    const VelThreads::Lock lock(_mutex);
    if (!_answered) return false;
    point = _answer;
    _answered = false;
    return true;
}

void PointPicker::traverse(osg::NodeVisitor& visitor)
{
    osgUtil::CullVisitor* cull = visitor.asCullVisitor();
    if (!cull) return;
    {
        const VelThreads::Lock lock(_mutex);
        if (!_waiting || _waiting->camera.get() != cull->getCurrentCamera()) return;
        _camera->setViewMatrix(_waiting->view);
        _camera->setProjectionMatrix(_waiting->projection);
        _drawing = _waiting;
        _waiting.reset();
    }
    osg::Group::traverse(visitor);
}

void PointPicker::answer(osg::State& state)
{
    std::optional<PickedPoint> point =
        _attachments->read(state, _radius + kLargestReach, _radius + kLargestReach, _radius);
    const VelThreads::Lock lock(_mutex);
    if (!_drawing) return;
    if (point) {
        point->x += _drawing->x - _radius - kLargestReach;
        point->y += _drawing->y - _radius - kLargestReach;
    }
    _answer = point;
    _answered = !_waiting; // a newer request makes this answer stale
    _drawing.reset();
}

} // namespace VelOsgDBBrx

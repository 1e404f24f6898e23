#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelThreads/Mutex.h>

#include <osg/BoundingBox>
#include <osg/Camera>
#include <osg/FrameBufferObject>
#include <osg/Group>
#include <osg/Matrixd>
#include <osg/Texture2D>
#include <osg/Vec3d>
#include <osg/Vec3f>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <optional>
#include <vector>

class OctreeInfo;

namespace VelOsgDBBrx {

/// A point that a pick found.
struct PickedPoint
{
    osg::Vec3d position;  ///< world coordinates; as exact as a float relative to the store's offset
    double gpsTime = 0;   ///< rounded to a float; see `storedPoint`
    uint64_t cloudId = 0; ///< see `PointCloudHelper::setPointCloudId`
    int x = 0;            ///< pixel that shows it
    int y = 0;
};

/// A point as its store holds it.
struct StoredPoint
{
    osg::Vec3d position; ///< file coordinates, to the last digit
    double gpsTime = 0;
    uint16_t intensity = 0;
    uint8_t returnNumber = 0;
    uint8_t numberOfReturns = 0;
    uint8_t classCode = 0; ///< as edited, also when that is not written to the store yet
    bool hidden = false;
    uint16_t pointSource = 0;
    std::array<uint16_t, 3> color{}; ///< red, green, blue
    uint64_t number = 0;             ///< of its record in the store, from 0
    uint8_t userData = 0;
    double scanAngle = 0; ///< degrees, in steps of 0.006
    uint8_t scannerChannel = 0;
    bool scansForward = false; ///< scan direction, from left to right
    bool atEdgeOfLine = false;
    std::optional<osg::Vec3f> normal; ///< where the store has normals
};

/// Finds the point of a store that a pick showed, with what floats on a graphics card round away; none when
/// the store has no such point. Of several at one place it is one of the picked time. Looks through the
/// records of the cells at that place: milliseconds. Takes the mutexes of the octree and of its point file,
/// so it waits for edits.
VEL_OSGDB_BRX_EXPORT std::optional<StoredPoint> storedPoint(const PickedPoint& point, OctreeInfo& octree);

/// The points of some classes in a box of file coordinates, faces included, without hidden ones, and without
/// their normals. Reads the records of all cells that the box touches, and takes the mutex of the point file
/// cell by cell. Ends early, with some of the points, when there are `most` of them or `cancel` is set. Any
/// thread may call it.
VEL_OSGDB_BRX_EXPORT std::vector<StoredPoint> storedPointsIn(const osg::BoundingBoxd& box,
                                                             const std::bitset<256>& classes,
                                                             OctreeInfo& octree, size_t most,
                                                             const std::atomic<bool>* cancel);

/// The five colour targets that point programs write: colour, identifiers, times, fractional and integer
/// parts of the position. A host whose camera draws into them can read back the point behind any of its
/// pixels.
class VEL_OSGDB_BRX_EXPORT PickAttachments : public osg::Referenced
{
public:
    PickAttachments(int width, int height); ///< pixels

    /// Makes the camera draw into the targets, with a depth buffer. Call it again with new ones to resize.
    void attachTo(osg::Camera& camera) const;

    osg::Texture2D* getColorTexture() const { return _textures[0]; }

    /// The point nearest to pixel (x, y) among those at most `radius` pixels to each side; none where no
    /// point is drawn. Reads pixels back: call it on the draw thread, with the context current, after the
    /// camera has drawn, from its post-draw callback for one.
    std::optional<PickedPoint> read(osg::State& state, int x, int y, int radius) const;

protected:
    ~PickAttachments() override = default;

private:
    int _width;
    int _height;
    std::array<osg::ref_ptr<osg::Texture2D>, 5> _textures;
    osg::ref_ptr<osg::FrameBufferObject> _reading;
};

/// Picks points on request, whatever the host's camera draws into: draws the few pixels around the place once
/// more, into targets of its own, in the next frame. A host adds the picker to its scene, asks it when the
/// user clicks, and looks for the answer after the next frames:
///
///     picker->request(*viewer.getCamera(), event.getX(), event.getY());
///     ...
///     std::optional<PickedPoint> point;
///     if (picker->takeAnswer(point)) show(point);
///
/// Meshes of the host hide the points behind them unless they have a shader program of their own that does
/// not write the picking targets.
///
/// Threads: any thread may ask and take answers; the rest happens in the cull and draw traversals.
class VEL_OSGDB_BRX_EXPORT PointPicker : public osg::Group
{
public:
    /// `scene` is the root of what is picked, in world coordinates; it is observed and may hold the picker. A
    /// point counts when it is at most `radius` pixels from the place asked for.
    explicit PointPicker(osg::Node* scene, int radius = 3);

    /// Asks for the point at window coordinates (x, y), y up, of a camera as it is now. Replaces a
    /// request that is not answered yet. False when the camera has no viewport.
    bool request(osg::Camera& camera, double x, double y);

    /// True once for each answered request; `point` is empty when there was none at the place.
    bool takeAnswer(std::optional<PickedPoint>& point);

    /// Only the cull traversal of the camera asked for passes here, and only while a request waits.
    void traverse(osg::NodeVisitor& visitor) override;

    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "PointPicker"; }

protected:
    ~PointPicker() override = default;

private:
    class SceneCamera;
    class ReadCallback;

    /// What was asked for.
    struct Request
    {
        osg::observer_ptr<osg::Camera> camera;
        osg::Matrixd view;
        osg::Matrixd projection; ///< of the pixels around the place
        int x = 0;
        int y = 0;
    };

    void answer(osg::State& state);

    const int _radius;
    osg::ref_ptr<PickAttachments> _attachments;
    osg::ref_ptr<SceneCamera> _camera;

    VelThreads::Mutex _mutex;
    std::optional<Request> _waiting VEL_GUARDED_BY(_mutex);
    std::optional<Request> _drawing VEL_GUARDED_BY(_mutex); ///< culled, not read yet
    bool _answered VEL_GUARDED_BY(_mutex) = false;
    std::optional<PickedPoint> _answer VEL_GUARDED_BY(_mutex);
};

} // namespace VelOsgDBBrx

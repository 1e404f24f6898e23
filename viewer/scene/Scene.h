#pragma once

#include "viewer/display/ChangedColors.h"
#include "viewer/display/ColorMode.h"
#include "viewer/display/SurfaceLook.h"
#include "viewer/scene/EditLimits.h"
#include "viewer/scene/Options.h"
#include "viewer/scene/Units.h"
#include "viewer/scene/WaitingStore.h"

#include <VelBrx/ClassTable.h>
#include <VelBrx/FileIdentity.h>
#include <VelBrx/Status.h>
#include <VelBrx/StoreStatistics.h>
#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/OpenCloud.h>

#include <osg/BoundingBox>
#include <osg/Group>
#include <osg/Vec4d>
#include <osg/ref_ptr>

#include <bitset>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// A store that was read for the scene. It shares nothing with one: any thread may open and drop it.
struct OpenedStore
{
    std::string path;
    VelOsgDBBrx::OpenedCloud cloud;
    osg::BoundingBoxd bounds; ///< world coordinates
    osg::BoundingBoxd bulk;   ///< where nearly all of its points are
    std::optional<CoordinateSystem> system;
};

/// Opens a store; reads its index and its coarse cells. `normals`: its companion file, empty for the one
/// beside it. A failure names the file. `note`: a line for people, or nothing. Any thread may call it.
VelBrx::Status openStore(const std::string& path, const std::string& normals, OpenedStore& opened,
                         std::string& note);

/// The point clouds on show. World coordinates are the stores' file coordinates: every cloud stands under a
/// translation by its offset, in double precision.
///
/// Belongs to the viewer's thread: change it between frames or in the event and update traversals. Where an
/// edit of a cloud may be running, add and remove clouds by `SceneEditing`.
class Scene
{
public:
    /// Without clouds, and with the look that a command line without options asks for.
    Scene();

    /// How the points look, those of clouds to come too.
    void setLook(const Options& options);

    /// Opens the stores and shows them as the options say; others wait. A failure names the file. Of several
    /// names of one file the first is shown, and a line on stderr says so of the others.
    VelBrx::Status load(const std::vector<std::string>& stores, std::vector<WaitingStore> waiting,
                        const Options& options);
    VelBrx::Status load(const std::vector<std::string>& stores, const Options& options)
    {
        return load(stores, {}, options);
    }

    /// One store on show.
    struct Cloud
    {
        uint64_t id = 0;    ///< of picks; no other cloud of the scene ever has it
        uint64_t order = 0; ///< in which the scene was told of it; what waited keeps its own
        std::string store;
        osg::ref_ptr<VelOsgDBBrx::IPointCloud> node;
        osg::ref_ptr<osg::Node> placed;         ///< the node at its place in the world
        VelBrx::StoreStatistics statistics;     ///< as built
        uint64_t points = 0;                    ///< as built
        osg::BoundingBoxd bounds;               ///< world coordinates
        osg::BoundingBoxd bulk;                 ///< where nearly all of its points are
        std::optional<CoordinateSystem> system; ///< empty where the store states none that can be known
        bool shown = true;

        OctreeInfo& octree() const { return *node->getOctree(); }
    };

    /// Shows stores; the colours' scale is of all clouds from now on. A store that is shown already is left
    /// out, and `notes` gets a line that says so, and one where coordinate systems differ. Returns the ids of
    /// the new clouds.
    std::vector<uint64_t> add(std::vector<OpenedStore> stores, std::vector<std::string>& notes);

    /// \name Stores that are not open yet
    /// They count in bounds, units, and the scale of colours. One becomes a cloud when `add` gets it.
    /// @{

    /// Those that are shown or wait already are left out. `notes` is as of `add`.
    void await(std::vector<WaitingStore> stores, std::vector<std::string>& notes);

    /// Nobody will open these; unknown paths are ignored.
    void giveUp(const std::vector<std::string>& paths);

    const WaitingStores& waiting() const { return _waiting; }
    /// @}

    /// The path of the store that the scene was told of first, open or not; empty where there is none.
    const std::string& firstStore() const { return _firstStore; }

    /// Takes a cloud or a preview out; unknown ids are ignored. Its store is closed when nobody else holds
    /// its node.
    void remove(uint64_t id);

    /// Shows a sample of a survey whose store is being built: `preview`, its path the survey's file. Bounds,
    /// units and colours are of the previews, too, but they are none of `clouds`, so that nothing in them is
    /// edited, picked, counted, measured or exported. `points`: of the survey. Returns the id.
    uint64_t addPreview(OpenedStore preview, uint64_t points);
    const std::vector<Cloud>& previews() const { return _previews; }

    /// Draws the cloud, or does not. Its paging goes on as for one that is not in the picture.
    void setShown(uint64_t id, bool shown);

    /// Another number when clouds, previews or stores that wait came, went, were shown or hidden.
    unsigned cloudsRevision() const { return _cloudsRevision; }

    /// In the order in which they came.
    const std::vector<Cloud>& clouds() const { return _clouds; }

    /// There is neither a cloud nor a preview, and none waits.
    bool isEmpty() const { return _clouds.empty() && _previews.empty() && _waiting.empty(); }

    /// Null for an id of none.
    const Cloud* findCloud(uint64_t id) const;

    osg::Group* root() const { return _root; }

    /// Of all stores, as built, those that wait too.
    const VelBrx::StoreStatistics& statistics() const { return _statistics; }

    /// Of all points, those of stores that wait too, world coordinates.
    const osg::BoundingBoxd& bounds() const { return _bounds; }

    /// Of world coordinates: those of the first store that states its coordinate system.
    const Units& units() const { return _units; }

    /// How far the points are apart on the ground, world units, on the mean; 0 where there are none.
    double meanPointDistance() const;

    /// Of what a view is to show: of all points, or without noise far off.
    const osg::BoundingBoxd& boundsFor(const CameraView& view) const
    {
        return view.kind == CameraView::ALL ? _bounds : boundsOfMostStores();
    }

    /// `changedBy` is for ColorMode::CHANGED, which reads the journals of the stores.
    void setColorMode(ColorMode mode, ChangedBy changedBy = ChangedBy::ENTRY);
    ColorMode colorMode() const { return _mode; }
    ChangedBy changedBy() const { return _changedBy; }

    /// An edit, an undo or a save has ended: colours that tell of edits follow it.
    void followEdits();

    /// Points have this class now: legends from now on list it.
    void noteClass(uint8_t code);

    /// Points have none but these classes now: legends forget the others that were noted.
    void forgetAllBut(const std::bitset<256>& classes);

    /// The classes have these names and colours now, in the picture as in every text.
    void setClassTable(const VelBrx::ClassTable& table);

    /// What the colours of the current mode mean.
    Legend legend() const;

    /// \name Gradients of elevation, intensity and time
    /// @{
    /// The mode whose gradient is on show; empty where there is none.
    std::optional<ColorMode> gradientMode() const;

    /// What a gradient spans from now on; none: nearly all values of the clouds.
    void setColorSpan(ColorMode mode, const std::optional<ColorSpan>& span);

    /// One of `paletteNames`.
    void setPalette(const std::string& name);
    const Gradients& gradients() const { return _gradients; }
    const Coloring& coloring() const { return _coloring; }
    /// @}

    /// Why the current mode shows nothing, and what to do; empty where it shows something.
    std::string remark() const;

    /// Another number when the legend may have changed.
    unsigned legendRevision() const { return _legendRevision; }

    /// A channel c of 0 to 1 becomes (c - 0.5) contrast + 0.5 + brightness; not in the intensity mode.
    struct Exposure
    {
        double brightness = 0;
        double contrast = 1;
    };
    void setExposure(const Exposure& exposure);
    const Exposure& exposure() const { return _exposure; }

    void setEyeDomeLighting(bool enable);
    bool eyeDomeLighting() const { return _edl; }

    /// Clamped to what `--edl-strength` and `--edl-radius` take.
    void setShading(const EyeDomeShading& shading);
    const EyeDomeShading& shading() const { return _shading; }

    /// Clouds without normals are not lit.
    void setLight(const NormalLight& light);
    const NormalLight& light() const { return _light; }

    /// A surface of the points of some classes, below the points of the others.
    void setSurface(const SurfaceLook& surface);
    const SurfaceLook& surface() const { return _surface; }

    /// Of the surface, chosen or not.
    double contourInterval() const { return ::contourInterval(_surface, _statistics.elevation); }

    /// \name What is drawn
    /// @{
    /// Points of other classes are hidden, in every colour mode. All classes at first.
    void setShownClasses(const std::bitset<256>& classes);
    const std::bitset<256>& shownClasses() const { return _shownClasses; }

    /// Points outside any of the planes are hidden: (a, b, c, d) in world coordinates, inside where
    /// a x + b y + c z + d >= 0.
    void setClipPlanes(const std::vector<osg::Vec4d>& planes);
    const std::vector<osg::Vec4d>& clipPlanes() const { return _clipPlanes; }

    /// The planes are the faces of a box along the axes of the world; without one there are none.
    void setClipBox(const std::optional<osg::BoundingBoxd>& box);

    /// Empty where the planes are others.
    const std::optional<osg::BoundingBoxd>& clipBox() const { return _clipBox; }

    /// Edits reach the points that are not drawn, too.
    void setEditsUndrawn(bool undrawnToo) { _editsUndrawn = undrawnToo; }
    bool editsUndrawn() const { return _editsUndrawn; }

    /// What edits on a picture leave out beside.
    void setEditLimits(const EditLimits& limits) { _editLimits = limits; }
    const EditLimits& editLimits() const { return _editLimits; }
    /// @}

    /// What the cameras and the paging of whoever draws the scene follow.
    struct Drawing
    {
        osg::Vec4f background{0.11f, 0.12f, 0.14f, 1.0f};
        std::optional<uint64_t> budget; ///< largest number of points drawn; none: the library's
        std::optional<uint64_t> memory; ///< most that they take in memory, bytes; none: no limit of its own
        double framesPerSecond = 30;    ///< that moving about is to have
    };
    void setDrawing(const Drawing& drawing) { _drawing = drawing; }
    const Drawing& drawing() const { return _drawing; }

    /// The largest number of points drawn by what `drawing` says of number and memory.
    uint64_t largestPoints() const;

    /// What a loaded point takes in memory; as much at most again on the graphics card.
    uint64_t bytesPerPoint() const;

    /// Clamped to what `--point-size` takes.
    void setPointSize(int pixels);
    int pointSize() const { return _pointSize; }

    /// The factor is clamped to what `--point-sizing` takes.
    void setPointSizing(const PointSizing& sizing);
    const PointSizing& pointSizing() const { return _pointSizing; }

private:
    /// What clouds, previews and stores that wait have in common.
    struct Part
    {
        const std::string* store;
        const osg::BoundingBoxd* bounds;
        const osg::BoundingBoxd* bulk;
        const VelBrx::StoreStatistics* statistics;
        const std::optional<CoordinateSystem>* system;
        uint64_t points;
        uint64_t order;
        bool isPreview;
    };

    std::vector<Part> parts(bool previewsToo) const;
    const osg::BoundingBoxd& boundsOfMostStores() const;
    bool takeExpected(Cloud& cloud);
    ColorMode modeOf(const VelBrx::StoreStatistics& statistics) const;
    Legend legendOfPoints() const;
    std::vector<VelOsgDBBrx::IPointCloud*> nodes() const;
    std::vector<const Cloud*> all() const;
    Cloud place(OpenedStore store);
    void followClouds();
    static std::vector<bool> framed(const std::vector<Part>& parts);
    void tellFarAway(uint64_t firstNew, std::vector<std::string>& notes) const;
    void tellOtherSystems(uint64_t firstNew, std::vector<std::string>& notes) const;
    void followColors();
    void tellColorless() const;

    osg::ref_ptr<VelOsgDBBrx::SurfaceView> _root = new VelOsgDBBrx::SurfaceView;
    std::vector<Cloud> _clouds;
    std::vector<Cloud> _previews;
    std::map<VelBrx::FileIdentity, uint64_t> _files; ///< the ids of the clouds
    WaitingStores _waiting;
    std::string _firstStore;
    uint64_t _lastId = 0;
    uint64_t _lastOrder = 0;
    unsigned _cloudsRevision = 0;
    osg::BoundingBoxd _bounds;
    mutable std::optional<osg::BoundingBoxd> _boundsOfMost; ///< where it is known
    Units _units;
    VelBrx::StoreStatistics _statistics;                      ///< see `statistics`
    Coloring _coloring;                                       ///< one scale for all clouds
    osg::Vec4f _singleColor = Coloring::defaultSingleColor(); ///< of ColorMode::SINGLE
    std::bitset<256> _notedClasses;
    ColorMode _mode = ColorMode::AUTOMATIC;
    ChangedBy _changedBy = ChangedBy::ENTRY;
    ChangedColors _changed;
    unsigned _legendRevision = 0;
    Gradients _gradients;
    Exposure _exposure;
    Drawing _drawing;
    bool _edl = false;
    EyeDomeShading _shading;
    NormalLight _light;
    SurfaceLook _surface;
    int _pointSize = 0;
    PointSizing _pointSizing;
    std::bitset<256> _shownClasses = std::bitset<256>().set();
    std::vector<osg::Vec4d> _clipPlanes;
    std::optional<osg::BoundingBoxd> _clipBox;
    bool _editsUndrawn = false;
    EditLimits _editLimits;
};

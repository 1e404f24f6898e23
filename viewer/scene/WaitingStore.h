#pragma once

#include "crs/CoordinateSystem.h"

#include <VelBrx/Status.h>
#include <VelBrx/StoreStatistics.h>

#include <osg/BoundingBox>
#include <osg/Matrixd>
#include <osg/Vec4d>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What a folder's index file tells of a store that nobody has opened yet.
struct WaitingStore
{
    std::string path;
    osg::BoundingBoxd bounds;           ///< world coordinates
    osg::BoundingBoxd bulk;             ///< where nearly all of its points are
    uint64_t points = 0;                ///< as built
    VelBrx::StoreStatistics statistics; ///< as built
    std::optional<CoordinateSystem> system;
    bool isEdited = false; ///< its journal has entries
    uint64_t order = 0;    ///< see `Scene::Cloud`
};

/// By their paths.
using WaitingStores = std::map<std::string, WaitingStore>;

/// Whether all of a box is on the outer side of one of the planes: (a, b, c, d) in world coordinates, inside
/// where a x + b y + c z + d >= 0.
bool isBeyond(const osg::BoundingBoxd& box, const std::vector<osg::Vec4d>& planes);

/// What a camera shows.
struct ViewVolume
{
    osg::Matrixd toClip;            ///< world to clip coordinates
    std::vector<osg::Vec4d> planes; ///< limits beside those of the camera, see `isBeyond`

    /// Whether some of a box may be shown, however near or far.
    bool reaches(const osg::BoundingBoxd& box) const;

    bool operator==(const ViewVolume& other) const
    {
        return toClip == other.toClip && planes == other.planes;
    }
    bool operator!=(const ViewVolume& other) const { return !(*this == other); }
};

/// Whether `brx index` was run on a folder: its stores may wait.
bool hasIndexFile(const std::string& folder);

/// The stores of a folder that has an index file, in the order of their paths. `notes` gets what is to know,
/// `problems` a line for each store that cannot be read. Any thread may call it.
VelBrx::Status readIndexedStores(const std::string& folder, std::vector<WaitingStore>& indexed,
                                 std::vector<std::string>& notes, std::vector<std::string>& problems);

/// The stores that are in any of the views, the nearest first, and then those that are edited: who undoes,
/// saves or looks at the history has them all.
std::vector<std::string> wantedStores(const WaitingStores& waiting, const std::vector<ViewVolume>& views);

/// The same, and then the others.
std::vector<std::string> allStores(const WaitingStores& waiting, const std::vector<ViewVolume>& views);

/// How many of them are in a view.
size_t countIn(const ViewVolume& view, const WaitingStores& waiting);

/// \name Why an edit has to wait for stores; empty where it need not
/// @{

/// One that reaches all points would leave theirs out.
std::string whyNotAll(const WaitingStores& waiting);

/// One of what this view shows.
std::string whyNotIn(const ViewVolume& view, const WaitingStores& waiting);

/// Undo, redo and steps of the history: the newest edit may be in one of them.
std::string whyNoHistory(const WaitingStores& waiting);
/// @}

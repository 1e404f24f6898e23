#pragma once

#include <VelBrx/StoreStatistics.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/Node>

namespace VelOsgDBBrx {

/// How a store looks when nobody chose: what the viewer and the osgDB plugin start with, for other hosts too.
/// Call these where the scene may be changed: between frames or in the update traversal.
class VEL_OSGDB_BRX_EXPORT DefaultDisplay
{
public:
    static constexpr int kPointSize = 3; ///< pixels: points that paging leaves stand one to two pixels apart

    /// The points' colours, or their elevation where the store has no colours, at `kPointSize`. A null node
    /// is ignored.
    static void apply(osg::Node* node, const VelBrx::StoreStatistics& statistics);

    /// Colours by the height that points have in their file, through `ramp(elevations)`: also where the cloud
    /// was moved, scaled or turned about the vertical in the scene, as in one that was re-centred. A null
    /// node is ignored.
    static void elevation(osg::Node* node, const VelBrx::AttributeRange& elevations);

    /// Likewise, through another gradient, whose range is of heights in the file.
    static void elevation(osg::Node* node, ColorWithRangeInfo& gradient);

    /// A blue to red gradient from the 2nd to the 98th percentile of `values`, or over all of them where
    /// those percentiles are equal.
    static ColorWithRangeInfo ramp(const VelBrx::AttributeRange& values);
};

} // namespace VelOsgDBBrx

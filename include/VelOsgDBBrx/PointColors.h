#pragma once

#include <VelBrx/ClassTable.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/Vec4f>

#include <cstdint>
#include <string>
#include <vector>

namespace VelOsgDBBrx {

/// \name Colours for points
/// Any thread may call these functions. Colours are RGBA in [0, 1], opaque.
/// @{

/// A colour of a table of classes (`VelBrx::ClassTable`), or of `VelBrx::distinctColor`: 0xrrggbb.
VEL_OSGDB_BRX_EXPORT osg::Vec4f opaqueColor(uint32_t rgb);

/// The colours of the classes 0 to 255, as `ShaderHelper::classificationColorShader` takes them.
VEL_OSGDB_BRX_EXPORT std::vector<osg::Vec4f> classColors(const VelBrx::ClassTable& table);

/// The gradients that `paletteStops` knows. In all of them equal steps of the value are about equal steps to
/// the eye.
VEL_OSGDB_BRX_EXPORT const std::vector<std::string>& paletteNames();

/// The stops of a gradient, evenly spaced from 0 to 1, for `ColorWithRangeInfo::entries`; none for a name
/// that is not one of `paletteNames`.
VEL_OSGDB_BRX_EXPORT std::vector<ColorEntry> paletteStops(const std::string& name);
/// @}

} // namespace VelOsgDBBrx

#pragma once

#include "edit/FrontSurface.h"
#include "edit/GrownPoints.h"
#include "edit/PolygonArea.h"
#include "edit/ScreenMask.h"

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/PointSelection.h>

#include <memory>
#include <optional>
#include <vector>

/// A selection with what its test needs that is the same for all stores of an edit: the mask and the areas of
/// its polygons. Constant after construction and, where it is needed, a `SelectionScan`.
class SelectionAreas
{
public:
    /// `tool` makes the mask of a screen polygon; null: a `PolygonMaskTool`.
    explicit SelectionAreas(VelOsgDBBrx::PointSelection pointSelection,
                            VelOsgDBBrx::PixelBufferTool* tool = nullptr);

    /// `known`: the mask of its screen polygon, where there is one already.
    SelectionAreas(VelOsgDBBrx::PointSelection pointSelection, std::optional<ScreenMask> known,
                   VelOsgDBBrx::PixelBufferTool* tool = nullptr);
    SelectionAreas(const SelectionAreas&) = delete;
    SelectionAreas& operator=(const SelectionAreas&) = delete;

    const VelOsgDBBrx::PointSelection selection;

    /// Why the selection cannot be used; what follows has no meaning then.
    VelBrx::Status status;

    std::optional<ScreenMask> mask;    ///< of a `ScreenPlace`
    std::optional<PolygonArea> map;    ///< of a `MapPlace`
    std::vector<PolygonArea> selected; ///< in the order of the selection's polygons
    std::vector<std::vector<PolygonArea>>
        segments; ///< of the drawn segments, each in the order of its polygons

    std::unique_ptr<const FrontSurface> front; ///< of a `ScreenPlace` with a front tolerance, once scanned
    std::unique_ptr<const GrownPoints> grown;  ///< of a `GrownPlace`, once scanned
};

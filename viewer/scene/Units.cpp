#include "viewer/scene/Units.h"

Units::Units(const std::optional<CoordinateSystem>& of)
{
    if (!of) return;
    level = of->horizontalUnit().symbol;
    isGeographic = of->isGeographic();
    system = of->name() + (of->code().empty() ? "" : " (" + of->code() + ")");
    constexpr double kEarthRadius = 6371000;
    metres = of->horizontalUnit().size * (isGeographic ? kEarthRadius : 1);
    const auto& vertical = of->verticalUnit();
    if (!vertical) return;
    height = vertical->symbol;
    if (!isGeographic) heightFactor = vertical->size / of->horizontalUnit().size;
}

#include "viewer/tool/ToolTable.h"

#include <algorithm>

namespace {

template <class Kind>
std::unique_ptr<Tool> make(ToolSettings&)
{
    return std::make_unique<Kind>();
}

template <bool above>
std::unique_ptr<Tool> makeLineSide(ToolSettings&)
{
    return std::make_unique<LineSideTool>(above);
}

std::unique_ptr<Tool> makeBrush(ToolSettings& settings)
{
    return std::make_unique<BrushTool>(settings.brush);
}

} // namespace

const std::vector<ToolKind>& toolTable()
{
    static const std::vector<ToolKind> table = {
        {"Polygon", 'a', "draw a polygon: click its corners", make<PolygonTool>},
        {"Rectangle", 'A', "draw a rectangle: click or drag two corners", make<RectangleTool>},
        {"Lasso", 't', "draw a lasso: drag around the points", make<LassoTool>},
        {"Circle", 'C', "draw a circle: drag from its centre", make<CircleTool>},
        {"Brush", 'b', "paint with a brush: drag; the wheel makes it larger", makeBrush},
        {"Above line", ';', "take what is above a line", makeLineSide<true>},
        {"Below line", '\'', "take what is below a line", makeLineSide<false>},
        {"Between lines", '/', "take what is between two lines", make<BetweenLinesTool>},
        {"Grow", 'Y', "grow from a point over its neighbours", make<GrowTool>},
    };
    return table;
}

const ToolKind* findTool(int key)
{
    const auto found = std::find_if(toolTable().begin(), toolTable().end(),
                                    [key](const ToolKind& kind) { return kind.key == key; });
    return found == toolTable().end() ? nullptr : &*found;
}

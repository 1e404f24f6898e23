#include "viewer/gui/Density.h"

#include <algorithm>
#include <cmath>

float unitForRows(int rows)
{
    constexpr double kRowsPerUnit = 900.0;
    return static_cast<float>(std::max(1.0, std::round(rows / kRowsPerUnit)));
}

float unitFor(const osg::GraphicsContext& window)
{
    auto* const system = osg::GraphicsContext::getWindowingSystemInterface();
    unsigned width = 0;
    unsigned height = 0;
    if (system && window.getTraits()) system->getScreenResolution(*window.getTraits(), width, height);
    return unitForRows(static_cast<int>(height));
}

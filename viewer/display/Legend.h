#pragma once

#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/Vec4f>

#include <string>
#include <vector>

/// What the colours of a picture mean.
struct Legend
{
    struct Entry
    {
        osg::Vec4f color;
        std::string text;
    };

    std::string title;                         ///< empty: there is nothing to explain
    std::string remark;                        ///< why the mode shows nothing; empty where it shows something
    std::vector<Entry> entries;                ///< of a mode with a colour for each value
    std::vector<VelOsgDBBrx::ColorEntry> ramp; ///< of a mode with a gradient
    std::vector<std::string> numbers;          ///< along the gradient, the lowest first, evenly spaced
};

#include "viewer/display/Palettes.h"

#include <charconv>
#include <map>

namespace {

osg::Vec4f opaque(unsigned rgb)
{
    const auto channel = [rgb](unsigned shift) { return static_cast<float>(rgb >> shift & 0xff) / 255.0f; };
    return osg::Vec4f(channel(16), channel(8), channel(0), 1.0f);
}


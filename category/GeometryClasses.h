#pragma once

#include "edit/ScreenMask.h"

#include <VelOsgDBBrx/Category.h>

#include <osg/Geometry>
#include <osg/ref_ptr>

#include <cstdint>
#include <vector>

/// The classes of a geometry that is no cell of a store: bits 24 to 31 of its integer vertex attribute at
/// location 12, hidden bits 16 to 19, as in the cells'. The host draws such a geometry; it must not draw it
/// while commands are carried out.

/// Points of a geometry, and the class that each had.
struct GeometryChange
{
    osg::ref_ptr<osg::Geometry> geometry;
    std::vector<uint32_t> points;
    std::vector<uint8_t> classes;
};

/// Gives the points under the mask, which is as large as the window, `base.toClass`: those that are not
/// hidden, inside `base.planesA` and of a class that may change. Vertices are world coordinates. Nothing is
/// changed in a geometry without such an attribute, or without single precision vertices.
GeometryChange editClasses(osg::Geometry& geometry, const VelOsgDBBrx::Base& base, const ScreenMask& mask);

/// Gives the points their classes back; the result takes that back again.
GeometryChange revertChange(const GeometryChange& change);

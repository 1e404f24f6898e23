#include "category/GeometryClasses.h"

#include "loading/CellGeometry.h"
#include "loading/PointAttributes.h"
#include "loading/PointRecords.h"

#include <algorithm>

using VelOsgDBBrx::Base;

using PointAttributes::classOf;

namespace {

osg::IntArray* categoriesOf(osg::Geometry& geometry)
{
    return dynamic_cast<osg::IntArray*>(geometry.getVertexAttribArray(CellGeometry::kCategoryLocation));
}

bool mayChange(const Base& base, uint8_t code)
{
    if (code < base.classTable.size()) return base.classTable[code] != 0;
    return std::all_of(base.classTable.begin(), base.classTable.end(), [](int32_t may) { return may != 0; });
}

/// By the rule of `PolygonPointCmd`: the mask's pixel at column trunc(x), row trunc(height - y).
bool isUnder(const ScreenMask& mask, const osg::Vec4d& clip)
{
    const double column = clip.x() / clip.w();
    const double row = mask.height() - clip.y() / clip.w();
    const bool inWindow =
        clip.w() > 0 && column > -1 && column < mask.width() && row > -1 && row < mask.height();
    return inWindow && mask.data()[static_cast<ptrdiff_t>(static_cast<int>(row)) * mask.pitch() +
                                   static_cast<int>(column)];
}

bool isInside(const std::vector<osg::Vec4d>& planes, const osg::Vec4d& p)
{
    return std::all_of(planes.begin(), planes.end(), [&](const osg::Vec4d& plane) { return plane * p >= 0; });
}

} // namespace

GeometryChange editClasses(osg::Geometry& geometry, const Base& base, const ScreenMask& mask)
{
    GeometryChange change{&geometry, {}, {}};
    const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometry.getVertexArray());
    osg::IntArray* const categories = categoriesOf(geometry);
    if (!vertices || !categories) return change;
    const size_t count = std::min(vertices->size(), categories->size());
    for (size_t i = 0; i < count; ++i) {
        const int category = (*categories)[i];
        const osg::Vec4d p((*vertices)[i], 1);
        const bool changes = !(category & PointAttributes::kHiddenBits) &&
                             classOf(category) != base.toClass && mayChange(base, classOf(category)) &&
                             isInside(base.planesA, p) && isUnder(mask, p * base.vpw);
        if (!changes) continue;
        change.points.push_back(static_cast<uint32_t>(i));
        change.classes.push_back(classOf(category));
        (*categories)[i] = PointAttributes::withClass(category, static_cast<uint8_t>(base.toClass));
    }
    if (!change.points.empty()) categories->dirty();
    return change;
}

GeometryChange revertChange(const GeometryChange& change)
{
    GeometryChange reverted = change;
    osg::IntArray* const categories = categoriesOf(*change.geometry);
    for (size_t i = 0; categories && i < change.points.size(); ++i) {
        if (change.points[i] >= categories->size()) continue; // the host has replaced the array
        int& category = (*categories)[change.points[i]];
        reverted.classes[i] = classOf(category);
        category = PointAttributes::withClass(category, change.classes[i]);
    }
    if (categories) categories->dirty();
    return reverted;
}

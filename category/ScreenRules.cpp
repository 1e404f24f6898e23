#include "category/ScreenRules.h"

#include "edit/CloudPlaces.h"
#include "edit/ScreenRegion.h"
#include "edit/StoreEdit.h"
#include "loading/PointRecords.h"

#include <algorithm>

using VelOsgDBBrx::Base;

VelBrx::Status checkBase(const Base& base)
{
    if (base.toClass < 0 || base.toClass > 255)
        return VelBrx::Status::failure("there is no class " + std::to_string(base.toClass) +
                                       "; give one of 0 to 255");
    if (base.width < 1 || base.height < 1)
        return VelBrx::Status::failure("the edit's window has no size; give width and height in pixels");
    if (!base.vpw.valid())
        return VelBrx::Status::failure("the edit's camera matrix is not a number; give that of the window");
    return {};
}

ClassRule classRule(const Base& base)
{
    ClassRule rule;
    rule.to = static_cast<uint8_t>(base.toClass);
    for (size_t c = 0; c < base.classTable.size(); ++c)
        rule.from[c] = base.classTable[c] != 0;
    rule.from[255] =
        std::all_of(base.classTable.begin(), base.classTable.end(), [](int32_t entry) { return entry != 0; });
    return rule;
}

ScreenRules::ScreenRules(OctreeInfo& octree, const ScreenSelection& selection)
    : _octree(octree), _hidingBits(selection.base.flag & Base::HIDDEN_POINTS ? 0 : kHiddenBits)
{
    const Base& base = selection.base;
    for (size_t c = 0; c < _shown.size(); ++c)
        _shown[c] = (base.flag & Base::CLASSES_OFF) || base.shownClasses[c];
    const osg::Matrixd localToWorld = selection.places.of(octree);
    _empty = !rectanglePlanes(selection.outline, base.height, localToWorld * base.vpw, _bounds);
    addTests(selection, localToWorld);
}

void ScreenRules::addTests(const ScreenSelection& selection, const osg::Matrixd& localToWorld)
{
    const Base& base = selection.base;
    const ScreenMask& mask = selection.mask;
    const osg::Matrixd localToMask =
        localToWorld * base.vpw *
        osg::Matrixd::scale(double(mask.width()) / base.width, double(mask.height()) / base.height, 1);
    const auto addTest = [&](const std::vector<osg::Vec4d>& planes) {
        _tests.emplace_back(_octree.scale, localToMask, toLocal(planes, localToWorld), mask, false);
    };
    if (base.flag & Base::OUTSIDE_PLANES) return addTest({});
    for (const osg::Vec4d& plane : toLocal(base.planesA, localToWorld))
        _bounds.emplace_back(plane);
    if (base.planesB.empty()) return addTest(base.planesA);

    const size_t inGroup =
        base.planesPerGroup < 1 ? base.planesB.size() : static_cast<size_t>(base.planesPerGroup);
    for (auto group = base.planesB.begin(); base.planesB.end() - group >= static_cast<ptrdiff_t>(inGroup);
         group += inGroup) {
        std::vector<osg::Vec4d> planes = base.planesA;
        planes.insert(planes.end(), group, group + inGroup);
        addTest(planes);
    }
    _empty = _empty || _tests.empty();
}

std::vector<CellData*> ScreenRules::cells() const
{
    return _empty ? std::vector<CellData*>() : cellsInside(_octree, _bounds);
}

void ScreenRules::test(const uint8_t* records, int count, const uint8_t* classes, uint8_t* accepted) const
{
    _tests.front().test(records, count, accepted);
    for (size_t t = 1; t < _tests.size(); ++t) {
        uint8_t other[kBlock];
        _tests[t].test(records, count, other);
        for (int i = 0; i < kBlock; ++i)
            accepted[i] |= other[i];
    }
    uint8_t any = 0;
    for (int i = 0; i < count; ++i)
        any |= accepted[i];
    if (!any) return;
    for (int i = 0; i < count; ++i) {
        const bool isHidden = records[i * kRecordSize + kFlagByte] & _hidingBits;
        accepted[i] = (accepted[i] != 0) & !isHidden & (_shown[classes[i]] != 0);
    }
}

#include "category/ScreenRules.h"

#include "category/StoredClasses.h"
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

ScreenRules::ScreenRules(OctreeInfo& octree, const ScreenSelection& selection)
    : _octree(octree), _hidingBits(selection.base.flag & Base::HIDDEN_POINTS ? 0 : kHiddenBits),
      _changes(fromClasses(selection.base)), _toClass(static_cast<uint8_t>(selection.base.toClass))
{
    const Base& base = selection.base;
    for (size_t c = 0; c < _shown.size(); ++c)
        _shown[c] = (base.flag & Base::CLASSES_OFF) || base.shownClasses[c];
    _changes[_toClass] = 0;

    const osg::Matrixd localToWorld = selection.places.of(octree);
    _empty = !rectanglePlanes(selection.outline, base.height, localToWorld * base.vpw, _bounds);
    addTests(selection, localToWorld);
}

/// Class 255 has no entry; it goes with a full table.
ScreenRules::ClassSet ScreenRules::fromClasses(const Base& base)
{
    ClassSet set{};
    bool all = true;
    for (size_t c = 0; c < base.classTable.size(); ++c) {
        set[c] = base.classTable[c] != 0;
        all = all && set[c];
    }
    set[255] = all;
    return set;
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

/// False when no point of the block is accepted.
bool ScreenRules::accept(const uint8_t* records, int count, uint8_t* accepted) const
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
    return any != 0;
}

void ScreenRules::editBlock(const uint8_t* records, int count, const uint8_t* before, uint8_t* after,
                            ClassCounts& selected) const
{
    uint8_t accepted[kBlock];
    if (!accept(records, count, accepted)) {
        std::copy_n(before, count, after);
        return;
    }
    for (int i = 0; i < count; ++i) {
        const uint8_t current = before[i];
        const bool hidden = records[i * kRecordSize + kFlagByte] & _hidingBits;
        const bool in = (accepted[i] != 0) & !hidden & (_shown[current] != 0);
        selected[current] += in;
        after[i] = (in & (_changes[current] != 0)) ? _toClass : current;
    }
}

void ScreenRules::edit(const uint8_t* records, int64_t count, const uint8_t* current, uint8_t* before,
                       uint8_t* after, ClassCounts& selected) const
{
    for (int64_t first = 0; first < count; first += kBlock) {
        const int block = static_cast<int>(std::min<int64_t>(kBlock, count - first));
        const uint8_t* blockRecords = records + first * kRecordSize;
        if (current)
            std::copy_n(current + first, block, before + first);
        else
            gatherClasses(blockRecords, block, before + first);
        editBlock(blockRecords, block, before + first, after + first, selected);
    }
}

void ScreenRules::addCounts(const ClassCounts& selected, VelOsgDBBrx::CategoryReport::Counts& counts) const
{
    for (size_t c = 0; c < selected.size(); ++c) {
        counts.selected += selected[c];
        counts.before[c] += selected[c];
        counts.after[_changes[c] ? _toClass : c] += selected[c];
        if (_changes[c]) counts.changed += selected[c];
    }
}

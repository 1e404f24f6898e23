#include "category/ClassRule.h"

#include "edit/CellClasses.h"
#include "edit/PointTest.h"
#include "loading/PointRecords.h"

#include <algorithm>

ClassRuleEdit::ClassRuleEdit(const PointTest& test, const ClassRule& rule) : _test(test), _to(rule.to)
{
    for (size_t c = 0; c < _changes.size(); ++c)
        _changes[c] = rule.from[c] && c != rule.to;
}

void ClassRuleEdit::editBlock(const uint8_t* records, int count, const uint8_t* before, uint8_t* after,
                              ClassCounts& reached) const
{
    uint8_t accepted[PointTest::kBlock];
    _test.test(records, count, before, accepted);
    uint8_t any = 0;
    for (int i = 0; i < count; ++i)
        any |= accepted[i];
    if (!any) {
        std::copy_n(before, count, after);
        return;
    }
    for (int i = 0; i < count; ++i) {
        const uint8_t current = before[i];
        const bool in = accepted[i] != 0;
        reached[current] += in;
        after[i] = (in & (_changes[current] != 0)) ? _to : current;
    }
}

void ClassRuleEdit::edit(const uint8_t* records, int64_t count, const uint8_t* current, uint8_t* before,
                         uint8_t* after, ClassCounts& reached) const
{
    for (int64_t first = 0; first < count; first += PointTest::kBlock) {
        const int block = static_cast<int>(std::min<int64_t>(PointTest::kBlock, count - first));
        const uint8_t* const blockRecords = records + first * kRecordSize;
        if (current)
            std::copy_n(current + first, block, before + first);
        else
            gatherClasses(blockRecords, block, before + first);
        editBlock(blockRecords, block, before + first, after + first, reached);
    }
}

void ClassRuleEdit::addCounts(const ClassCounts& reached, VelOsgDBBrx::CategoryCounts& counts) const
{
    for (size_t c = 0; c < reached.size(); ++c) {
        counts.selected += reached[c];
        counts.before[c] += reached[c];
        counts.after[_changes[c] ? _to : c] += reached[c];
        if (_changes[c]) counts.changed += reached[c];
    }
}

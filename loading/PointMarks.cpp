#include "loading/PointMarks.h"

#include "loading/PointAttributes.h"

#include <algorithm>

EditMarks::EditMarks(uint64_t pointCount) : _blocks((pointCount + kBlock - 1) / kBlock) {}

void EditMarks::mark(uint64_t first, uint64_t count, uint16_t value)
{
    const VelThreads::Lock guard(_mutex);
    while (count > 0) {
        Block& block = _blocks[first / kBlock];
        const uint64_t place = first % kBlock;
        const uint64_t length = std::min(count, kBlock - place);
        if (length == kBlock) {
            block.marks.reset();
            block.common = value;
        } else if (block.marks || block.common != value) {
            if (!block.marks) {
                block.marks = std::make_unique<std::array<uint16_t, kBlock>>();
                block.marks->fill(block.common);
            }
            std::fill_n(&(*block.marks)[place], length, value);
        }
        first += length;
        count -= length;
    }
}

void EditMarks::pack()
{
    const VelThreads::Lock guard(_mutex);
    for (Block& block : _blocks) {
        if (!block.marks) continue;
        const uint16_t common = block.marks->front();
        if (std::any_of(block.marks->begin(), block.marks->end(),
                        [common](uint16_t mark) { return mark != common; }))
            continue;
        block.common = common;
        block.marks.reset();
    }
}

bool EditMarks::put(uint64_t record, size_t count, const int*, int* marked) const
{
    const VelThreads::Lock guard(_mutex);
    bool changed = false;
    for (; count > 0; --count, ++record, ++marked) {
        const Block& block = _blocks[record / kBlock];
        changed |= set(*marked, block.marks ? (*block.marks)[record % kBlock] : block.common);
    }
    return changed;
}

bool BuiltMarks::put(uint64_t record, size_t count, const int* classes, int* marked) const
{
    bool changed = false;
    for (size_t i = 0; i < count; ++i) {
        const bool isHidden = (classes[i] & PointAttributes::kHiddenBits) != 0;
        const bool isReclassed = _built.classOf(record + i) != PointAttributes::classOf(classes[i]);
        const int mark = (_built.wasHidden(record + i) != isHidden) + 2 * isReclassed;
        changed |= set(marked[i], static_cast<uint16_t>(mark));
    }
    return changed;
}

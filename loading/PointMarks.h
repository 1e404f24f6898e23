#pragma once

#include <VelBrx/AsBuilt.h>
#include <VelThreads/Mutex.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// A mark for each point of a store, which the lens on edits draws as a colour: see VelOsgDBBrx::EditLens.
/// Cells have it in bits 8 to 23 of their location-7 attribute. Any thread may call it.
class PointMarks
{
public:
    static constexpr int kShift = 8;
    static constexpr int kBits = 0xFFFF << kShift;

    PointMarks() = default;
    virtual ~PointMarks() = default;
    PointMarks(const PointMarks&) = delete;
    PointMarks& operator=(const PointMarks&) = delete;

    /// Puts the marks of consecutive records, the first with this number, into their location-7 elements.
    /// `classes` are their location-12 elements. Whether any was another.
    virtual bool put(uint64_t record, size_t count, const int* classes, int* marked) const = 0;

protected:
    /// Whether the element changed.
    static bool set(int& element, uint16_t mark)
    {
        const int made = (element & ~kBits) | mark << kShift;
        const bool changed = made != element;
        element = made;
        return changed;
    }
};

/// Which edit touched a point last. Memory: two bytes a point in blocks of 65536 that have several marks,
/// none in others.
class EditMarks : public PointMarks
{
public:
    explicit EditMarks(uint64_t pointCount);

    void mark(uint64_t first, uint64_t count, uint16_t value);

    /// Gives back the memory of blocks that have one mark by now.
    void pack();

    bool put(uint64_t record, size_t count, const int* classes, int* marked) const override;

private:
    static constexpr uint64_t kBlock = 65536; ///< points
    struct Block
    {
        uint16_t common = 0; ///< where there are no others
        std::unique_ptr<std::array<uint16_t, kBlock>> marks;
    };

    mutable VelThreads::Mutex _mutex;
    std::vector<Block> _blocks VEL_GUARDED_BY(_mutex);
};

/// Whether a point is as it was when its store was built: 1 for other hidden bits, 2 for another class, 3 for
/// both.
class BuiltMarks : public PointMarks
{
public:
    explicit BuiltMarks(const VelBrx::AsBuilt& built) : _built(built) {}

    bool put(uint64_t record, size_t count, const int* classes, int* marked) const override;

private:
    const VelBrx::AsBuilt _built;
};

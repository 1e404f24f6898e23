#pragma once

#include <VelBrx/EditJournal.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// A store in one cell whose points have all kinds of flags and classes, edited through its journal.
struct EditedStore
{
    static constexpr size_t kStart = 375; ///< of the first point record
    static constexpr uint64_t kId = 0x1234;

    /// The bytes of a store of `count` points.
    static std::vector<uint8_t> bytes(uint32_t count);

    /// A point and the value that it gets.
    struct Change
    {
        uint64_t point;
        uint8_t value;
    };

    using Journal = std::shared_ptr<VelBrx::EditJournal>;

    /// Opens the journal of the store at `path`; fails the test where that fails.
    static Journal open(const std::string& path);

    /// Writes a change of hidden bits down and, where `isApplied` is set, into the store. `number` is the
    /// change's.
    static VelBrx::Status hide(const Journal& journal, const std::string& path,
                               const std::vector<Change>& changes, uint64_t& number, bool isApplied = true,
                               int64_t time = 0);

    /// The same for classes, which are not in the store until the journal is saved. `current` are the classes
    /// that the points have without that.
    static VelBrx::Status classify(const Journal& journal, const std::vector<uint8_t>& current,
                                   const std::vector<Change>& changes, uint64_t& number);
};

#pragma once

#include <VelBrx/Export.h>

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>

namespace VelBrx {

/// The names and colours of the classes 0 to 255: a value. At first the names are those of the LAS 1.4
/// standard, and every class has a colour of its own.
///
/// Any thread may read a table that no other thread changes. Codes above 255 are those of no class: they have
/// no name, and are not set.
class VEL_BRX_EXPORT ClassTable
{
public:
    ClassTable();

    /// Empty where the class has none.
    const std::string& name(unsigned code) const;

    /// As 0xrrggbb.
    uint32_t color(unsigned code) const;

    /// As people read it: the code and, where there is one, the name.
    std::string text(unsigned code) const;

    void setName(unsigned code, const std::string& name);
    void setColor(unsigned code, uint32_t rgb);

    /// The classes that a name or a colour was set of: those that a user works with.
    const std::bitset<256>& own() const { return _own; }

private:
    struct Entry
    {
        std::string name;
        uint32_t color = 0;
    };

    std::array<Entry, 256> _entries;
    std::bitset<256> _own;
};

/// The colour of the n-th of several things that have no order, such as flight lines, as 0xrrggbb: neighbours
/// are told apart, and no two of the first few hundred are the same. Any thread may call it.
VEL_BRX_EXPORT uint32_t distinctColor(size_t n);

} // namespace VelBrx

#include "store/CellIdentifiers.h"

#include <cstring>

#include <sys/sysmacros.h>

namespace VelBrx {

namespace {

/// In the order of their codes, so that identifiers of one file sort by level and key code.
constexpr char kDigits[] = "-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
constexpr int kDigitBits = 6;
constexpr size_t kFileKeyLength = 27; ///< digits for 32 + 64 + 64 bits
constexpr size_t kCellKeyLength = 11; ///< digits for 64 bits
static_assert(kFileKeyLength + kCellKeyLength + 1 == sizeof(CellBlock::identifier));

/// Bits as digits, six a digit.
class DigitWriter
{
public:
    void append(uint64_t value, int bits)
    {
        for (int bit = bits - 1; bit >= 0; --bit)
            appendBit(value >> bit & 1);
    }

    /// Fills the last digit up.
    std::string finish()
    {
        while (_bits > 0)
            appendBit(0);
        return _text;
    }

private:
    void appendBit(uint64_t bit)
    {
        _digit = _digit << 1 | static_cast<unsigned>(bit);
        if (++_bits < kDigitBits) return;
        _text += kDigits[_digit];
        _digit = 0;
        _bits = 0;
    }

    std::string _text;
    unsigned _digit = 0;
    int _bits = 0;
};

} // namespace

/// The kernel's device numbers have 12 and 20 bits. Store ids are drawn at random over all of 64 bits: mixed
/// with one, the birth takes no room, and different births of one store id differ.
CellIdentifiers::CellIdentifiers(const FileIdentity& file, uint64_t storeId)
{
    DigitWriter digits;
    digits.append(major(file.device), 12);
    digits.append(minor(file.device), 20);
    digits.append(file.inode, 64);
    digits.append(storeId ^ static_cast<uint64_t>(file.birth), 64);
    _fileKey = digits.finish();
}

void CellIdentifiers::identify(CellWithSegment& cell) const
{
    // The bit above the code's highest gives the level.
    const uint64_t key = uint64_t(1) << 3 * cell.level | cell.code;
    char* identifier = cell.identifier;
    std::memcpy(identifier, _fileKey.data(), kFileKeyLength);
    for (size_t i = 0; i < kCellKeyLength; ++i) {
        const size_t digitsBehind = kCellKeyLength - 1 - i;
        identifier[kFileKeyLength + i] = kDigits[key >> kDigitBits * digitsBehind & 63];
    }
    identifier[kFileKeyLength + kCellKeyLength] = '\0';
}

} // namespace VelBrx

#pragma once

#include <VelBrx/Export.h>
#include <VelThreads/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace VelBrx {

class File;

/// Changes single bytes of a mapped file, so that a disk without room is an error and not the end of the
/// process: where a store into the mapping could find no room, the bytes are written with the system's
/// calls. Readers of the mapping see them at once. After a kill each byte is either as before or as wanted.
///
/// It has the file open a second time, so it is made for an edit and not kept. Any thread may call it.
class VEL_BRX_EXPORT FileWriter
{
public:
    /// `file` outlives the writer.
    explicit FileWriter(File& file);
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    /// False when the file cannot be written, or its name leads to another file by now.
    bool isOpen() const;

    /// Why it is not open, or why bytes could not be written, the first of several reasons; empty where all
    /// went well. It follows the name of the file in a sentence.
    std::string problem() const;

    /// Gives byte `firstByte + place * stride` behind `memory`, which `File::map` gave, the value
    /// `newByte(i, old)`, for the i-th of `count` ascending places; `places[i]` is a place. Returns how many
    /// of them, from the first, have their byte; fewer than `count` when the disk had no room, none when
    /// it could not be read.
    template <class Places, class NewByte>
    size_t set(uint8_t* memory, size_t stride, size_t firstByte, Places places, size_t count,
               NewByte newByte);

private:
    static constexpr size_t kChunk = 65536; ///< bytes written at once
    static constexpr size_t kGap = 2048;    ///< bytes; changes further apart are written apart

    bool reached(const uint8_t* memory, size_t length);
    size_t writeOver(const uint8_t* memory, const uint8_t* bytes, size_t length);
    void note(int error);

    File& _file;
    int _descriptor;
    bool _storesDirectly = false;
    mutable VelThreads::Mutex _mutex;
    std::string _problem VEL_GUARDED_BY(_mutex);
};

template <class Places, class NewByte>
size_t FileWriter::set(uint8_t* memory, size_t stride, size_t firstByte, Places places, size_t count,
                       NewByte newByte)
{
    const auto byteOf = [&](size_t i) { return firstByte + static_cast<size_t>(places[i]) * stride; };
    if (!isOpen()) return 0;
    if (_storesDirectly) {
        for (size_t i = 0; i < count; ++i) {
            uint8_t& byte = memory[byteOf(i)];
            byte = newByte(i, byte);
        }
        return count == 0 || reached(memory + byteOf(0), byteOf(count - 1) - byteOf(0) + 1) ? count : 0;
    }
    uint8_t bytes[kChunk];
    for (size_t i = 0; i < count;) {
        const size_t first = byteOf(i);
        size_t end = i + 1;
        while (end < count && byteOf(end) - byteOf(end - 1) <= kGap && byteOf(end) - first < kChunk)
            ++end;
        const size_t length = byteOf(end - 1) - first + 1;
        std::memcpy(bytes, memory + first, length);
        for (size_t k = i; k < end; ++k) {
            uint8_t& byte = bytes[byteOf(k) - first];
            byte = newByte(k, byte);
        }
        const size_t written = writeOver(memory + first, bytes, length);
        while (i < end && byteOf(i) - first < written)
            ++i;
        if (i < end) return i;
    }
    return count;
}

} // namespace VelBrx

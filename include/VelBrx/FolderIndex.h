#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/GroundSpread.h>
#include <VelBrx/ProjectionRecords.h>
#include <VelBrx/Status.h>
#include <VelBrx/StoreStatistics.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// What is known of one store of a folder without opening it.
struct IndexedStore
{
    /// A file as it was when it was read: another size or time is another content. All 0 where there is none.
    struct Stamp
    {
        uint64_t bytes = 0;
        int64_t modified = 0; ///< nanoseconds since 1970

        bool operator==(const Stamp& other) const
        {
            return bytes == other.bytes && modified == other.modified;
        }
        bool operator!=(const Stamp& other) const { return !(*this == other); }
    };

    std::string name; ///< its path from the folder
    Stamp file;       ///< all 0 where the store is to be read again: file or journal had been changed so
                      ///< shortly before that their times may not tell a later change, or an older index
                      ///< does not have all of this
    Stamp journal;

    uint64_t bytes = 0; ///< of the store's file
    uint64_t points = 0;
    std::array<double, 3> min{}; ///< smallest coordinates of the points, file units
    std::array<double, 3> max{};
    std::array<double, 3> scale{};
    std::array<double, 3> offset{};
    size_t system = 0;          ///< index of `FolderIndex::systems`
    StoreStatistics statistics; ///< as built
    GroundBox bulk;             ///< where nearly all of its points are
    uint64_t edits = 0;         ///< entries of the journal
    uint64_t unsavedEdits = 0;
};

/// The stores of a folder, those of the folders in it too, in the order of their names.
struct FolderIndex
{
    std::vector<IndexedStore> stores;
    std::vector<ProjectionRecords> systems; ///< each once
};

/// What became of it.
struct FolderReport
{
    size_t opened = 0;                 ///< stores that were read themselves
    size_t removed = 0;                ///< stores that were known and are there no more
    std::vector<std::string> problems; ///< of each store that cannot be read, one line that names it
    std::string remark;                ///< a line: why the index file was of no use; empty where it was, and
                                       ///< where there is none
};

/// The place of a folder's index file: `stores.brxindex` in it.
VEL_BRX_EXPORT std::string folderIndexPath(const std::string& folder);

/// Reads what the stores of a folder are. What is known of them, by `index` as it was read before or, where
/// that is empty, by the folder's index file, is taken from there as far as size and time of the files are
/// those of then; other stores are opened, and the points of their coarse cells read. So the result is that
/// of the files, with an index or without. Fails, and leaves `index` as it is, where the folder cannot be
/// listed. Writes nothing. Any thread may call it.
VEL_BRX_EXPORT Status readFolder(const std::string& folder, FolderIndex& index, FolderReport& report);

/// Writes the folder's index file, in one piece: who reads it has the old one or the new one. Any number of
/// processes may do so at once; the last one's stays, and what it lacks is read from the stores. A failure
/// names the file.
VEL_BRX_EXPORT Status writeFolderIndex(const std::string& folder, const FolderIndex& index);

} // namespace VelBrx

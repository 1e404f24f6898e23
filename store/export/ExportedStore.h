#pragma once

#include "store/SourceRecords.h"
#include "store/StoreIndex.h"
#include "store/part/StoreFile.h"

#include <string>
#include <vector>

namespace VelBrx {

/// A store that is exported, open, with what it keeps of its sources.
struct ExportedStore : StoreFile
{
    /// Opens the store and reads and checks everything but the points. A failure names the store.
    static Status open(const std::string& path, ExportedStore& store, StoreIndex& index);

    /// A failure with the store's path before it.
    Status failure(const std::string& message) const { return Status::failure(path + ": " + message); }

    const std::vector<OriginSource>& sources() const { return records.origin.sources; }

    SourceRecords records;
};

/// Whether the points of a source were compressed.
bool isCompressedSource(const OriginSource& source);

} // namespace VelBrx

#pragma once

#include "store/FileReader.h"
#include "store/ProblemList.h"
#include "store/StoreHead.h"

namespace VelBrx {

/// Checks the records that tell where the points of a store come from, as far as the store has them: their
/// layout and checksums, that they agree with each other, and that the order of the points names every source
/// point once.
void checkSourceRecords(const FileReader& file, const StoreHead& head, ProblemList& problems);

} // namespace VelBrx

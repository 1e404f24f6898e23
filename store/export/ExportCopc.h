#pragma once

#include <VelBrx/ExportLas.h>

namespace VelBrx {

/// `exportLas` to a COPC file, all sources in one: the cells of the store become its nodes, a chunk each, in
/// the order of levels. Point format and what is kept are as in `ExportForm::Merged`; within a node points
/// are in the order of GPS time.
Status exportCopc(const ExportOptions& options, ExportReport& report);

} // namespace VelBrx

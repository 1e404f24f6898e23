#include "viewer/files/StoreExport.h"

#include "terminal/Text.h"

#include <VelBrx/ExportLas.h>

using VelBrx::Status;

Status exportStore(const std::string& store, const std::string& file, bool replace,
                   const std::function<void(const VelBrx::BuildProgress&)>& progress,
                   const std::atomic<bool>& cancel, std::vector<std::string>& told)
{
    VelBrx::ExportOptions options;
    options.store = store;
    options.output = file;
    options.overwrite = replace;
    options.progress = progress;
    options.cancel = &cancel;
    VelBrx::ExportReport report;
    const Status status = VelBrx::exportLas(options, report);
    for (const VelBrx::ExportedFile& written : report.files)
        if (status)
            told.push_back("wrote " + written.path + ": " + grouped(written.points) + " points, " +
                           grouped(written.changed) + " of them edited");
    told.insert(told.end(), report.notes.begin(), report.notes.end());
    return status;
}

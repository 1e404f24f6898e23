#include <VelBrx/ExportLas.h>

#include "store/export/ExportCopc.h"
#include "store/export/ExportFiles.h"
#include "store/export/ExportPlan.h"
#include "store/export/PointExport.h"
#include "store/export/SourceOrder.h"

namespace VelBrx {

namespace {

/// An export in the order of the sources: the points are counted and put in order (`SourceOrder`), the files
/// are laid out with the counts (`ExportFiles`), and the points written (`PointExport`).
Status exportInSourceOrder(const ExportOptions& options, ExportReport& report)
{
    ExportedStore store;
    StoreIndex index;
    if (Status status = ExportedStore::open(options.store, store, index); !status) return status;
    ExportPlan plan(options, store);
    if (Status status = plan.make(); !status) return status;

    ParallelRun run(options.threads, options.progress, options.cancel);
    PointFilter filter(options.part, store, index);
    SourceOrder order(store, filter, plan.orderMemory(run.threads()), run.threads());
    run.setTotal(store.head.header.pointCount, (order.windowCount() > 1 ? 3 : 2) + filter.passes());
    run.begin("choosing");
    if (Status status = filter.choose(index, options.memory, run); !status) return status.of(store.path);
    index = StoreIndex(); // it may be large
    run.begin("reading");
    if (Status status = OutputFile::checkSpace(options.output, order.temporarySize()); !status) return status;
    if (Status status = order.distribute(plan.folder(), run); !status) return status.of(store.path);
    ExportFiles files(plan);
    if (Status status = files.make(order.tallies(), report); !status) return status;
    run.begin("writing");
    if (Status status = PointExport(plan, files, run).write(order); !status) return status;
    if (Status status = run.step(0); !status) return status;
    if (Status status = files.commit(report); !status) return status;
    run.begin("done");
    return {};
}

} // namespace

Status exportLas(const ExportOptions& options, ExportReport& report)
{
    report = ExportReport();
    if (Status status = PointFilter::check(options.part); !status) return status.of(options.output);
    return runToFile(options.output, "; allow the export less of it", [&] {
        const bool isCopc = options.form != ExportForm::Split && isCopcName(options.output);
        return isCopc ? exportCopc(options, report) : exportInSourceOrder(options, report);
    });
}

} // namespace VelBrx

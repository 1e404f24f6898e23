#pragma once

#include <VelBrx/ExportLas.h>

#include "store/export/ExportedStore.h"

#include <string>
#include <vector>

namespace VelBrx {

/// Which files an export makes, where, and which of them are compressed. Constant once planned.
class ExportPlan
{
public:
    /// Both must live as long as the plan.
    ExportPlan(const ExportOptions& options, const ExportedStore& store) : _options(options), _store(store) {}

    /// Decides the paths, makes the folder of split files, and checks that the files may be made.
    Status make();

    const ExportOptions& options() const { return _options; }
    const ExportedStore& store() const { return _store; }

    bool isSplit() const { return _options.form == ExportForm::Split; }
    bool isMerged() const
    {
        return _options.form == ExportForm::Merged ||
               (_options.form == ExportForm::Automatic && _store.sources().size() > 1);
    }

    /// The file that the points of a source go to.
    size_t outputOf(size_t source) const { return isMerged() ? 0 : source; }
    const std::vector<std::string>& paths() const { return _paths; }

    /// The folder that temporary files go to.
    std::string folder() const;

    /// Whether the points of a source are compressed in the file that they go to.
    bool isCompressed(const OriginSource& source) const;

    /// Bytes of the options' memory for putting points in order: less what compressing them takes.
    uint64_t orderMemory(unsigned threads) const;

private:
    /// A folder that the export made, taken away again when it is empty in the end.
    class OutputFolder
    {
    public:
        OutputFolder() = default;
        ~OutputFolder();
        OutputFolder(const OutputFolder&) = delete;
        OutputFolder& operator=(const OutputFolder&) = delete;

        /// Makes the folder where there is none.
        Status prepare(const std::string& path);

    private:
        std::string _made;
    };

    const ExportOptions& _options;
    const ExportedStore& _store;
    OutputFolder _folder;
    std::vector<std::string> _paths;
};

} // namespace VelBrx

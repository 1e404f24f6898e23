#include "store/export/ExportPlan.h"

#include "store/export/ExportOutput.h"
#include "store/io/DiskFile.h"

#include <algorithm>
#include <cstring>
#include <set>

#include <sys/stat.h>
#include <unistd.h>

namespace VelBrx {

namespace {

/// A name for the file of a source that no earlier one has taken; a name from a store is not to be trusted.
std::string fileNameOf(const OriginSource& source, std::set<std::string>& taken)
{
    std::string name = source.name.substr(source.name.find_last_of('/') + 1);
    name.erase(std::remove(name.begin(), name.end(), '\0'), name.end());
    if (isCopcName(name)) name.erase(name.size() - std::strlen(".copc.laz"), std::strlen(".copc"));
    if (name.empty() || name == "." || name == "..") name = "source.las";
    const size_t dot = name.find_last_of('.');
    const std::string stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
    const std::string extension = name.substr(stem.size());
    for (unsigned number = 2; !taken.insert(name).second; ++number)
        name = stem + "_" + std::to_string(number) + extension;
    return name;
}

} // namespace

ExportPlan::OutputFolder::~OutputFolder()
{
    if (!_made.empty()) rmdir(_made.c_str()); // fails where files are in it, as it should
}

Status ExportPlan::OutputFolder::prepare(const std::string& path)
{
    struct stat status
    {
    };
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return {};
    if (mkdir(path.c_str(), 0777) != 0)
        return Status::failure(path + ": is no folder and none can be made there; name a folder for the "
                                      "files of the sources");
    _made = path;
    return {};
}

Status ExportPlan::make()
{
    if (isSplit()) {
        if (Status status = _folder.prepare(_options.output); !status) return status;
        std::set<std::string> taken;
        for (const OriginSource& source : _store.sources())
            _paths.push_back(_options.output + "/" + fileNameOf(source, taken));
    } else
        _paths.push_back(_options.output);
    for (const std::string& path : _paths)
        if (Status status = checkOutput(_options, path); !status) return status;
    return {};
}

std::string ExportPlan::folder() const
{
    return isSplit() ? _options.output : folderOf(_options.output);
}

bool ExportPlan::isCompressed(const OriginSource& source) const
{
    return isSplit() ? isCompressedSource(source) : isLazName(_options.output);
}

uint64_t ExportPlan::orderMemory(unsigned threads) const
{
    const bool compresses = std::any_of(_store.sources().begin(), _store.sources().end(),
                                        [this](const OriginSource& source) { return isCompressed(source); });
    const uint64_t compressing = compresses ? threads * LazPointWriter::kThreadMemory : 0;
    return _options.memory - std::min(_options.memory / 2, compressing);
}

} // namespace VelBrx

#include <VelBrx/Builder.h>
#include <VelBrx/PreviewStore.h>

#include "store/builder/SortedInput.h"
#include "store/io/TemporaryFile.h"
#include "store/las/PointSample.h"

#include <filesystem>
#include <thread>
#include <utility>

namespace VelBrx {

namespace {

constexpr uint64_t kMostBytes = 128 << 20; ///< of a sample

Status folderOf(const PreviewOptions& options, std::string& folder)
{
    std::error_code error;
    folder = options.folder.empty() ? std::filesystem::temp_directory_path(error).string() : options.folder;
    return error ? Status::failure("no folder for temporary files: " + error.message()) : Status();
}

Status readSample(const PreviewOptions& options, const PointSource& source,
                  std::unique_ptr<PointSource>& sample)
{
    PointSampling how;
    how.points = std::min(options.points, kMostBytes / source.file().recordLength);
    how.seconds = options.seconds;
    how.threads = options.threads ? options.threads : std::max(1u, std::thread::hardware_concurrency());
    how.cancel = options.cancel;
    return readPointSample(source, how, sample);
}

/// Writes a store of all points of `points` to a new file without a name.
Status writeStore(std::unique_ptr<PointSource> points, const std::string& folder,
                  const PreviewOptions& options, TemporaryFile& file)
{
    BuildOptions build;
    build.output = folder + "/preview"; // names the folder and the failures; nothing is made there
    build.threads = options.threads;
    build.cancel = options.cancel;
    LoadedInput input;
    input.sources.add(std::move(points));
    if (Status status = loadSources(build, input); !status) return status;
    if (!input.sources.bad().empty()) return input.sources.bad().front();
    SortedInput sorted(input);
    if (Status status = sorted.sort(build); !status) return status;
    if (Status status = file.create(folder, sorted.storeBytes()); !status) return status;
    return sorted.write(file.disk());
}

} // namespace

PreviewStore::PreviewStore() = default;
PreviewStore::~PreviewStore() = default;
PreviewStore::PreviewStore(PreviewStore&& other) noexcept = default;
PreviewStore& PreviewStore::operator=(PreviewStore&& other) noexcept = default;

std::string PreviewStore::path() const
{
    return _file ? _file->path() : std::string();
}

Status buildPreview(const PreviewOptions& options, PreviewStore& preview)
{
    const auto work = [&]() -> Status {
        std::string folder;
        if (Status status = folderOf(options, folder); !status) return status;
        std::unique_ptr<PointSource> source, sample;
        if (Status status = openPointSource(options.input, source); !status) return status;
        if (source->file().pointCount < options.leastPoints) return {};
        if (Status status = readSample(options, *source, sample); !status) return status;
        PreviewStore made;
        made._surveyPoints = source->file().pointCount;
        made._points = sample->file().pointCount;
        made._file = std::make_unique<TemporaryFile>();
        if (Status status = writeStore(std::move(sample), folder, options, *made._file); !status)
            return status;
        preview = std::move(made);
        return {};
    };
    return runToFile(options.input, " for its preview", work);
}

} // namespace VelBrx

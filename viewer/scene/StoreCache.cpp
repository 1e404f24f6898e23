#include "viewer/scene/StoreCache.h"

#include "crs/CoordinateSystem.h"
#include "terminal/EndSignals.h"
#include "terminal/Progress.h"
#include "terminal/Text.h"

#include <VelBrx/Builder.h>
#include <VelBrx/MiraLasRead.h>
#include <VelBrx/PreviewStore.h>
#include <VelBrx/StoreInfo.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using VelBrx::Status;

namespace {

constexpr char kStoreExtension[] = ".brx";

bool isStore(const std::string& path)
{
    VelBrx::BrxHeader header;
    return VelBrx::MiraLasRead::getBrxHeader(header, path.c_str());
}

bool isLas(const std::string& path)
{
    char signature[4] = {};
    std::ifstream(path, std::ios::binary).read(signature, sizeof signature);
    return std::string(signature, sizeof signature) == "LASF";
}

fs::path cacheFolder()
{
    const char* xdg = std::getenv("XDG_CACHE_HOME");
    const char* home = std::getenv("HOME");
    if (xdg && *xdg) return fs::path(xdg) / "brxview";
    return fs::path(home ? home : "/tmp") / ".cache" / "brxview";
}

/// 64-bit FNV-1a, in hexadecimal: tells files of the same name in different folders apart.
std::string fingerprint(const std::string& text)
{
    uint64_t hash = 0xcbf29ce484222325u;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
    char hexadecimal[17];
    std::snprintf(hexadecimal, sizeof hexadecimal, "%016llx", static_cast<unsigned long long>(hash));
    return hexadecimal;
}

fs::path storeBeside(const fs::path& source)
{
    return source.string() + kStoreExtension;
}

fs::path storeInCache(const fs::path& source)
{
    return cacheFolder() / (source.stem().string() + "-" + fingerprint(source.string()) +
                            storeBeside(source.extension()).string());
}

/// The superuser may write everywhere, and should not where the owner took the right away.
bool isWritable(const fs::path& folder)
{
    constexpr fs::perms kWrite = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    std::error_code error;
    const fs::perms permissions = fs::status(folder, error).permissions();
    return !error && (permissions & kWrite) != fs::perms::none && access(folder.c_str(), W_OK) == 0;
}

bool isNewer(const fs::path& store, const fs::path& source)
{
    std::error_code error;
    const auto storeTime = fs::last_write_time(store, error);
    if (error) return false;
    const auto sourceTime = fs::last_write_time(source, error);
    return !error && storeTime >= sourceTime;
}

/// Whether a store that somebody named is that of another file: with it the wrong survey would be shown, and
/// lost where it is to be built again. Files that are no stores are left to those who open them.
Status checkOrigin(const std::string& store, const std::string& source)
{
    std::vector<std::string> names;
    if (!VelBrx::readSourceNames(store, names) || names.empty()) return {};
    if (names.size() == 1 && names.front() == source) return {};
    const std::string more = names.size() > 1 ? " (and " + std::to_string(names.size() - 1) + " more)" : "";
    return Status::failure(store + ": is the store of " + names.front() + more + ", not of " + source +
                           "; name another place with --store");
}

} // namespace

std::string warnOfCache(const std::string& input, const std::string& store)
{
    if (store == input || fs::path(store).parent_path() != cacheFolder()) return {};
    return input + ": its folder cannot be written, so edits are kept in the cache alone, in " + store +
           "; brx export makes a LAS file of it, --store FILE keeps it elsewhere";
}

Status findStore(const std::string& input, bool rebuild, const std::string& place, StorePlan& plan)
{
    std::error_code error;
    const fs::path source = fs::canonical(input, error);
    if (error) return Status::failure(input + ": " + error.message());
    if (!fs::is_regular_file(source, error)) return Status::failure(input + ": is not a file");
    // What is wrong with a file of that name is said when it is opened: its index is read only there.
    if (source.extension() == kStoreExtension || isStore(source)) {
        if (!place.empty())
            return Status::failure(input + ": is a store; --store belongs to a LAS or LAZ file");
        plan = {input};
        return Status();
    }
    if (!isLas(source)) return Status::failure(input + ": is neither a store nor a LAS or LAZ file");

    const fs::path beside = storeBeside(source);
    const bool staysBeside = isWritable(source.parent_path()) || isNewer(beside, source);
    const fs::path target = !place.empty() ? fs::path(place) : staysBeside ? beside : storeInCache(source);
    const std::string store = target.string();
    const bool exists = fs::exists(target, error);
    if (exists && !place.empty())
        if (Status status = checkOrigin(store, source.filename().string()); !status) return status;
    const bool isCurrent = exists && isNewer(target, source);
    if (isCurrent && (!rebuild || isStore(store))) {
        plan = {store};
        return Status();
    }
    if (exists && !rebuild) {
        return Status::failure(store + ": is older than " + input +
                               "; --force builds it again, with the edits made in it");
    }
    plan = {store, source.string(), exists};
    return Status();
}

Status buildStore(const StorePlan& plan, const std::function<void(const VelBrx::BuildProgress&)>& progress,
                  const std::atomic<bool>& cancel, std::vector<std::string>& notes)
{
    const fs::path store = plan.store;
    std::error_code error;
    if (store.has_parent_path()) fs::create_directories(store.parent_path(), error);
    if (error) return Status::failure(store.parent_path().string() + ": " + error.message());
    VelBrx::BuildOptions options;
    options.compareSystems = differenceOfSystems;
    options.inputs = {plan.source};
    options.output = plan.store;
    options.overwrite = plan.replaces;
    options.keepEdits = plan.replaces && isStore(options.output);
    options.progress = progress;
    options.cancel = &cancel;
    VelBrx::BuildReport report;
    Status status = VelBrx::buildStore(options, report);
    notes.insert(notes.end(), report.notes.begin(), report.notes.end());
    return status;
}

Status openPreview(const StorePlan& plan, const std::atomic<bool>& cancel,
                   std::optional<StorePreview>& preview)
{
    constexpr uint64_t kLeastPoints = 3000000; // a store of fewer is there in a second or two
    VelBrx::PreviewOptions options;
    options.input = plan.source;
    options.leastPoints = kLeastPoints;
    options.cancel = &cancel;
    VelBrx::PreviewStore sample;
    if (Status status = VelBrx::buildPreview(options, sample); !status || sample.points() == 0) return status;
    StorePreview opened;
    std::string note; // the store's own will be told
    if (Status status = openStore(sample.path(), "", opened.store, note); !status) return status;
    opened.store.path = plan.source;
    opened.surveyPoints = sample.surveyPoints();
    preview = std::move(opened);
    return {};
}

Status findOrBuildStore(const std::string& input, bool rebuild, std::string& store, const std::string& place)
{
    StorePlan plan;
    if (Status status = findStore(input, rebuild, place, plan); !status) return status;
    store = plan.store;
    if (plan.source.empty()) return Status();
    const EndSignals signals;
    Progress progress(Progress::For::People);
    std::vector<std::string> notes;
    Status status = buildStore(
        plan,
        [&](const VelBrx::BuildProgress& state) {
            progress.show("building " + store + ", " + state.stage, state.pointsDone, state.pointsTotal);
        },
        signals.received(), notes);
    progress.clear();
    for (const std::string& note : notes)
        std::fprintf(stderr, "brxview: %s\n", printable(note).c_str());
    return status;
}

#include <VelBrx/FolderFiles.h>

#include "store/io/FolderEntries.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

namespace VelBrx {

namespace fs = std::filesystem;

namespace {

std::string lowerCaseExtension(const fs::path& path)
{
    std::string extension = path.extension();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    return extension;
}

} // namespace

Status findFiles(const std::string& folder, const std::set<std::string>& extensions,
                 std::vector<std::string>& files)
{
    files.clear();
    std::set<fs::path> entered; // by their real paths
    std::vector<fs::path> waiting = {folder};
    while (!waiting.empty()) {
        const fs::path current = waiting.back();
        waiting.pop_back();
        std::error_code error;
        const fs::path real = fs::canonical(current, error);
        if (!error && !entered.insert(real).second) continue;
        const auto add = [&](const std::string& name, int type) {
            const fs::path path = current / name;
            std::error_code unknown; // of a link that leads nowhere
            if (type == DT_DIR || (type != DT_REG && fs::is_directory(path, unknown)))
                waiting.push_back(path);
            else if (extensions.count(lowerCaseExtension(path)) != 0)
                files.push_back(path);
        };
        if (!error) error.assign(visitEntries(current, add), std::generic_category());
        if (error) return Status::failure(current.string() + ": cannot be listed: " + error.message());
    }
    std::sort(files.begin(), files.end());
    return {};
}

} // namespace VelBrx

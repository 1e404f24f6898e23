#include <VelBrx/FolderFiles.h>

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
        fs::directory_iterator entry;
        if (!error) entry = fs::directory_iterator(current, error);
        for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
            std::error_code unknown; // of a link that leads nowhere
            if (entry->is_directory(unknown))
                waiting.push_back(entry->path());
            else if (extensions.count(lowerCaseExtension(entry->path())) != 0)
                files.push_back(entry->path());
        }
        if (error) return Status::failure(current.string() + ": cannot be listed: " + error.message());
    }
    std::sort(files.begin(), files.end());
    return {};
}

} // namespace VelBrx

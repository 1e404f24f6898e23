#include "viewer/InputFiles.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

namespace fs = std::filesystem;
using VelBrx::Status;

namespace {

/// The files under a folder that matter to a viewer.
struct Folder
{
    std::vector<std::string> stores;
    size_t surveys = 0; ///< LAS and LAZ files
};

std::string lowerCaseExtension(const fs::path& path)
{
    std::string extension = path.extension();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    return extension;
}

Status list(const std::string& path, Folder& folder)
{
    std::error_code error;
    fs::recursive_directory_iterator entry(path, fs::directory_options::follow_directory_symlink, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        const std::string extension = lowerCaseExtension(entry->path());
        if (extension != ".brx" && extension != ".las" && extension != ".laz") continue;
        if (fs::is_directory(entry->path(), error)) continue;
        if (extension == ".brx")
            folder.stores.push_back(entry->path());
        else
            ++folder.surveys;
    }
    if (error) return Status::failure(path + ": cannot be listed: " + error.message());
    std::sort(folder.stores.begin(), folder.stores.end());
    return Status();
}

Status expand(const std::string& input, std::vector<std::string>& files)
{
    std::error_code error;
    if (!fs::is_directory(input, error)) {
        files.push_back(input);
        return Status();
    }
    Folder folder;
    if (Status status = list(input, folder); !status) return status;
    if (folder.stores.empty() && folder.surveys > 0) {
        return Status::failure(input + ": is a folder without stores; build one store of its " +
                               std::to_string(folder.surveys) + " LAS and LAZ files: brx build " + input +
                               " -o STORE.brx");
    }
    if (folder.stores.empty()) return Status::failure(input + ": is a folder without stores (.brx files)");
    files.insert(files.end(), folder.stores.begin(), folder.stores.end());
    return Status();
}

} // namespace

Status expandFolders(std::vector<std::string>& inputs)
{
    std::vector<std::string> files;
    for (const std::string& input : inputs)
        if (Status status = expand(input, files); !status) return status;

    std::set<fs::path> seen;
    inputs.clear();
    for (const std::string& file : files) {
        std::error_code error;
        const fs::path whole = fs::weakly_canonical(file, error);
        if (seen.insert(error ? fs::path(file) : whole).second) inputs.push_back(file);
    }
    return Status();
}

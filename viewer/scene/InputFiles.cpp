#include "viewer/scene/InputFiles.h"

#include <VelBrx/FolderFiles.h>

#include <filesystem>
#include <set>

namespace fs = std::filesystem;
using VelBrx::Status;

namespace {

Status withoutStores(const std::string& folder)
{
    std::vector<std::string> surveys;
    if (Status status = VelBrx::findFiles(folder, {".las", ".laz"}, surveys); !status) return status;
    if (surveys.empty()) return Status::failure(folder + ": is a folder without stores (.brx files)");
    return Status::failure(folder + ": is a folder without stores; build one store of its " +
                           std::to_string(surveys.size()) + " LAS and LAZ files: brx build " + folder +
                           " -o STORE.brx");
}

Status expand(const std::string& input, std::vector<std::string>& files)
{
    std::error_code error;
    if (!fs::is_directory(input, error)) {
        files.push_back(input);
        return Status();
    }
    std::vector<std::string> stores;
    if (Status status = VelBrx::findFiles(input, {".brx"}, stores); !status) return status;
    if (stores.empty()) return withoutStores(input);
    files.insert(files.end(), stores.begin(), stores.end());
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

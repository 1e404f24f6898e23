#include "viewer/operation/FileOperations.h"

#include "terminal/Text.h"
#include "viewer/operation/Operations.h"
#include "viewer/operation/ParameterKinds.h"

#include <filesystem>
#include <map>

using namespace parameter;
using VelBrx::Status;

namespace {

Begun began(const Status& status, std::string told)
{
    if (!status) return {Begun::REFUSED, status.message()};
    return {Begun::DONE, std::move(told)};
}

uint64_t countOf(const std::map<std::string, uint64_t>& counts, const Scene::Cloud& cloud)
{
    const auto found = counts.find(cloud.store);
    return found == counts.end() ? 0 : found->second;
}

/// The cloud of a store that a request names by path or by file name, or the only one that there is.
Status findCloud(const Request& request, const Scene& scene, const Scene::Cloud*& found)
{
    const std::string name = request.has("cloud") ? request.get<std::string>("cloud") : "";
    std::string names;
    int count = 0;
    for (const Scene::Cloud& cloud : scene.clouds()) {
        const std::string file = std::filesystem::path(cloud.store).filename().string();
        names += (names.empty() ? "" : ", ") + file;
        if (!name.empty() && name != file && name != cloud.store) continue;
        found = &cloud;
        ++count;
        if (name == cloud.store) return Status();
    }
    if (count == 1) return Status();
    if (names.empty()) return Status::failure("nothing is open");
    if (count == 0) return Status::failure(name + ": is not open; there are " + names);
    return Status::failure(name.empty() ? "say which \"cloud\": there are " + names
                                        : name + ": is the name of several; say the path");
}

Begun open(const Request& request, const Stage& stage)
{
    std::string told;
    FileStage::How how;
    if (request.has("store")) how.place = request.get<std::string>("store");
    how.rebuild = request.get<bool>("rebuild");
    how.inView = request.get<bool>("inView");
    const Status status = stage.files->open(request.get<std::string>("file"), how, told);
    return began(status, told);
}

Begun openAll(const Request&, const Stage& stage)
{
    std::string told;
    const Status status = stage.files->openAll(told);
    return began(status, told);
}

Begun close(const Request& request, const Stage& stage)
{
    const Scene::Cloud* cloud = nullptr;
    if (const Status status = findCloud(request, stage.scene, cloud); !status) return began(status, "");
    const uint64_t lost = countOf(stage.editing.unkeptPoints(), *cloud);
    if (lost > 0 && !request.get<bool>("evenIfLost"))
        return {Begun::REFUSED, cloud->store + ": the classes of " + grouped(lost) +
                                    " points are not saved and would be lost; save first, or say "
                                    "\"evenIfLost\""};
    const uint64_t unsaved = countOf(stage.editing.unsavedPoints(), *cloud);
    const std::string told = unsaved > lost ? cloud->store + ": the journal keeps the classes of " +
                                                  grouped(unsaved - lost) + " points that are not saved"
                                            : "";
    return began(stage.files->close(*cloud), told);
}

Begun exportCloud(const Request& request, const Stage& stage)
{
    const Scene::Cloud* cloud = nullptr;
    if (const Status status = findCloud(request, stage.scene, cloud); !status) return began(status, "");
    std::string told;
    const Status status = stage.files->exportCloud(*cloud, request.get<std::string>("file"),
                                                   request.get<bool>("replace"), told);
    if (const uint64_t unsaved = countOf(stage.editing.unsavedPoints(), *cloud); status && unsaved > 0)
        told += (told.empty() ? "" : "; ") + std::string("without the classes of ") + grouped(unsaved) +
                " points, which are not saved";
    return began(status, told);
}

Parameter cloudParameter()
{
    return orNone(text("cloud"), "the only one");
}

} // namespace

std::vector<Operation> fileOperations()
{
    return {{"open",
             "shows a store, the stores of a folder, or a LAS or LAZ file beside what is open",
             {text("file"), orNone(text("store"), "beside the file"), orElse(flag("rebuild"), false),
              orElse(flag("inView"), false)},
             {},
             open},
            {"openAll", "opens the stores that wait until a picture shows them", {}, {}, openAll},
            {"close",
             "takes a cloud out of the picture and closes its store",
             {cloudParameter(), orElse(flag("evenIfLost"), false)},
             {},
             close},
            {"export",
             "writes a cloud to a LAS, LAZ or COPC file, by the ending of its name, as its store has it",
             {text("file"), cloudParameter(), orElse(flag("replace"), false)},
             {},
             exportCloud}};
}

Request openRequest(const std::string& file)
{
    Request request(*findOperation("open"));
    request.set("file", file);
    return request;
}

#include "viewer/picture/Render.h"

#include "terminal/Text.h"
#include "viewer/picture/PictureView.h"
#include "viewer/scene/StoreOpener.h"

#include <VelOsgDBBrx/EditJournalling.h>

#include <cstdio>

using VelBrx::Status;

namespace {

/// What other programs left of their edits is finished, and the classes that they did not save are shown.
void finishEdits(const Scene& scene)
{
    for (const Scene::Cloud& cloud : scene.clouds()) {
        std::string note;
        const Status status = VelOsgDBBrx::EditJournalling::switchOn(*cloud.node->getOctree(), "", note);
        if (!status) note = status.message();
        if (!note.empty()) std::fprintf(stderr, "brxview: %s\n", printable(note).c_str());
    }
}

/// Opens the stores that wait and are in the picture.
Status openInView(const ViewVolume& view, Scene& scene)
{
    std::vector<std::string> notes;
    std::vector<OpenedStore> stores;
    std::vector<std::string> paths;
    for (const auto& [path, store] : scene.waiting())
        if (view.reaches(store.bounds)) paths.push_back(path);
    if (Status status = openStores(paths, nullptr, stores, notes); !status) return status;
    scene.add(std::move(stores), notes);
    for (const std::string& note : notes)
        std::fprintf(stderr, "brxview: %s\n", printable(note).c_str());
    return {};
}

Status prepare(PictureView& view, Scene& scene, const Options& options)
{
    const HeadlessRequest& request = *options.headless;
    if (Status status = view.open(request.size); !status) return status;
    view.look(lookAt(options.view, scene.boundsFor(options.view), view.aspect()), Lens());
    if (Status status = openInView(view.volume(), scene); !status) return status;
    finishEdits(scene);
    if (options.legend) view.setLegend(scene.legend());
    return view.settle(request.timeoutSeconds);
}

} // namespace

Status render(osgViewer::Viewer& viewer, Scene& scene, const Options& options)
{
    const std::string& picture = options.headless->picture;
    PictureView view(viewer, scene);
    if (const Status status = prepare(view, scene, options); !status)
        return Status::failure(picture + ": " + status.message());
    if (Status status = view.write(picture); !status) return status;
    const DrawnCounts drawn = view.countDrawn();
    std::printf("points %llu\ncells %llu\n", static_cast<unsigned long long>(drawn.points),
                static_cast<unsigned long long>(drawn.cells));
    return Status();
}

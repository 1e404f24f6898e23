#include "viewer/picture/Render.h"

#include "terminal/Text.h"
#include "viewer/picture/PictureView.h"

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

Status prepare(PictureView& view, const Scene& scene, const Options& options)
{
    const HeadlessRequest& request = *options.headless;
    if (Status status = view.open(request.size); !status) return status;
    view.look(lookAt(options.view, scene.boundsFor(options.view), view.aspect()), Lens());
    if (options.legend) view.setLegend(scene.legend());
    return view.settle(request.timeoutSeconds);
}

} // namespace

Status render(osgViewer::Viewer& viewer, const Scene& scene, const Options& options)
{
    const std::string& picture = options.headless->picture;
    finishEdits(scene);
    PictureView view(viewer, scene);
    if (const Status status = prepare(view, scene, options); !status)
        return Status::failure(picture + ": " + status.message());
    if (Status status = view.write(picture); !status) return status;
    const DrawnCounts drawn = view.countDrawn();
    std::printf("points %llu\ncells %llu\n", static_cast<unsigned long long>(drawn.points),
                static_cast<unsigned long long>(drawn.cells));
    return Status();
}

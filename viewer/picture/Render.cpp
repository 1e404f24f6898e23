#include "viewer/picture/Render.h"

#include "viewer/picture/PictureView.h"

#include <cstdio>

using VelBrx::Status;

namespace {

Status prepare(PictureView& view, const Scene& scene, const Options& options)
{
    const HeadlessRequest& request = *options.headless;
    if (Status status = view.open(request.size, options.budget); !status) return status;
    view.look(lookAt(options.view, scene.boundsFor(options.view), view.aspect()), Lens());
    if (options.legend) view.setLegend(scene.legend());
    return view.settle(request.timeoutSeconds);
}

} // namespace

Status render(osgViewer::Viewer& viewer, const Scene& scene, const Options& options)
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

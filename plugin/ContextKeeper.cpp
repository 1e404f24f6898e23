#include "plugin/ContextKeeper.h"

#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgDBBrx/OpenGLCheck.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <osg/Notify>

using VelOsgDBBrx::GlobalObject;

namespace {

class WarnOfOldOpenGL : public VelOsgDBBrx::OpenGLCheck
{
public:
    void operator()(osg::GraphicsContext* context) override
    {
        OpenGLCheck::operator()(context);
        const VelBrx::Status found = status();
        if (!found) OSG_WARN << "osgdb_brx: " << found.message() << std::endl;
    }

protected:
    ~WarnOfOldOpenGL() override = default;
};

/// The first context that the view draws into.
osg::GraphicsContext* contextOf(osgViewer::View& view)
{
    osg::GraphicsContext* context = view.getCamera()->getGraphicsContext();
    for (unsigned i = 0; !context && i < view.getNumSlaves(); ++i) {
        context = view.getSlave(i)._camera->getGraphicsContext();
    }
    return context;
}

} // namespace

ContextKeeper& ContextKeeper::instance()
{
    // Never destroyed: a host's viewer may be a static object too, and outlive everything here.
    static ContextKeeper& keeper = *new ContextKeeper;
    return keeper;
}

void ContextKeeper::handle(const osgGA::GUIEventAdapter& event, osgViewer::View& view, unsigned budget)
{
    Kept* kept = keep(view);
    if (!kept) return;
    if (kept->ours && budget > kept->budget) {
        kept->budget = budget;
        GlobalObject::setMaxNumOfPointCloud(kept->context, budget);
    }
    if (event.getEventType() == osgGA::GUIEventAdapter::FRAME) {
        beginFrame(*kept, view);
    } else {
        kept->quietFrames = 0; // it may move the camera
    }
}

ContextKeeper::Kept* ContextKeeper::keep(osgViewer::View& view)
{
    const auto known = _views.find(&view);
    if (known != _views.end()) return &known->second;
    osg::GraphicsContext* context = contextOf(view);
    if (!context) return nullptr;
    Kept& kept = _views[&view];
    kept.context = context;
    kept.ours = !GlobalObject::getPLM(context);
    if (kept.ours) {
        VelOsgDBBrx::IPointLoadManager* manager = GlobalObject::registerGraphicsContext(context);
        // Nothing is known of the host's cameras.
        manager->setLodOperation(new VelOsgDBBrx::PixelSpacingLod(*manager));
    }
    context->add(new WarnOfOldOpenGL); // runs where the context is current
    view.addObserver(this);
    return &kept;
}

void ContextKeeper::beginFrame(Kept& kept, osgViewer::View& view) const
{
    // The first frame shows a cloud to its context, and a camera is known one frame after it was drawn.
    constexpr int kQuietFrames = 3;
    VelOsgDBBrx::IPointLoadManager* manager = GlobalObject::getPLM(kept.context);
    const osg::Matrixd& viewMatrix = view.getCamera()->getViewMatrix();
    const bool quiet = viewMatrix == kept.viewMatrix && (!manager || manager->isSettled());
    kept.viewMatrix = viewMatrix;
    kept.quietFrames = quiet ? kept.quietFrames + 1 : 0;
    // A single redraw asked for in a frame is forgotten at its end. Nothing moves the camera any more when
    // the updates end, so no animation of a manipulator is cut off.
    if (kept.quietFrames < kQuietFrames) view.requestContinuousUpdate(true);
    if (kept.quietFrames == kQuietFrames) view.requestContinuousUpdate(false);
}

void ContextKeeper::objectDeleted(void* view)
{
    const auto entry = _views.find(static_cast<const osg::Referenced*>(view));
    if (entry == _views.end()) return;
    const Kept kept = entry->second;
    _views.erase(entry);
    if (kept.ours) GlobalObject::unRegisterGraphicsContext(kept.context);
}

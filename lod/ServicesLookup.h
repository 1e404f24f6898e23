#pragma once

#include <osg/ref_ptr>

namespace osg {
class GraphicsContext;
}
namespace osgViewer {
class View;
}
namespace VelOsgDBBrx {
class IPointCategoryManager;
class IPointLoadManager;
} // namespace VelOsgDBBrx

/// How the traversals of a cloud find the services of a graphics context. Whoever keeps the services sets the
/// look-up before the first of them begins; until then no context has any. Any thread may call it.
class ServicesLookup
{
public:
    /// Brings the services of the view's contexts to its viewer. False where none of them has any.
    virtual bool attachView(osgViewer::View* view) const = 0;

    /// Null where the context has no services.
    virtual osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> loads(osg::GraphicsContext* context) const = 0;
    virtual osg::ref_ptr<VelOsgDBBrx::IPointCategoryManager>
    categories(osg::GraphicsContext* context) const = 0;

    /// The look-up lives as long as the process.
    static void set(const ServicesLookup& lookup);

    /// The one that was set, else one that finds nothing.
    static const ServicesLookup& get();

protected:
    ~ServicesLookup() = default; // trivial: threads may look up while the process ends
};

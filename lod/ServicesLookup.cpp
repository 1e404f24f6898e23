#include "lod/ServicesLookup.h"

#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/IPointLoadManager.h>

#include <atomic>

using VelOsgDBBrx::IPointCategoryManager;
using VelOsgDBBrx::IPointLoadManager;

namespace {

class NoServices final : public ServicesLookup
{
public:
    bool attachView(osgViewer::View*) const override { return false; }
    osg::ref_ptr<IPointLoadManager> loads(osg::GraphicsContext*) const override { return nullptr; }
    osg::ref_ptr<IPointCategoryManager> categories(osg::GraphicsContext*) const override { return nullptr; }
};

const NoServices noServices;
std::atomic<const ServicesLookup*> current{&noServices};

} // namespace

void ServicesLookup::set(const ServicesLookup& lookup)
{
    current = &lookup;
}

const ServicesLookup& ServicesLookup::get()
{
    return *current;
}

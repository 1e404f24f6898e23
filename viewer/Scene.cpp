#include "viewer/Scene.h"

#include <VelBrx/MiraLasRead.h>
#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/LoadBrxTool.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/ShaderHelper.h>
#include <osg/MatrixTransform>

#include <algorithm>

using VelBrx::Status;
using VelOsgDBBrx::DefaultDisplay;
using VelOsgDBBrx::ShaderHelper;

namespace {

/// Widens `all` by `part`; an `all` without a span takes the part's.
void widen(VelBrx::AttributeRange& all, const VelBrx::AttributeRange& part, bool first)
{
    if (first) all = part;
    all.min = std::min(all.min, part.min);
    all.low = std::min(all.low, part.low);
    all.high = std::max(all.high, part.high);
    all.max = std::max(all.max, part.max);
}

} // namespace

Status Scene::load(const std::vector<std::string>& stores, const Options& options)
{
    _singleColor = options.color;
    for (const std::string& store : stores) {
        if (const Status status = loadCloud(store, options.normals); !status) return status;
    }
    setColorMode(options.mode);
    setPointSize(options.pointSize > 0 ? options.pointSize : DefaultDisplay::kPointSize);
    return Status();
}

Status Scene::loadCloud(const std::string& store, const std::string& normals)
{
    osg::Vec3d offset;
    osg::Vec3d min;
    osg::Vec3d max;
    Cloud cloud;
    cloud.node = VelOsgDBBrx::LoadBrxTool::loadBrxFile(store, offset, min, max, normals);
    if (!cloud.node || !VelBrx::MiraLasRead::getStatistics(cloud.statistics, store.c_str())) {
        return Status::failure(store + ": cannot be read as a store; brx verify tells what is wrong with it");
    }
    widen(_elevations, cloud.statistics.elevation, _clouds.empty());
    _bounds.expandBy(min + offset);
    _bounds.expandBy(max + offset);

    const osg::ref_ptr<osg::MatrixTransform> place =
        new osg::MatrixTransform(osg::Matrixd::translate(offset));
    place->addChild(cloud.node);
    _root->addChild(place);
    _clouds.push_back(cloud);
    return Status();
}

void Scene::setColorMode(ColorMode mode)
{
    VelOsgDBBrx::ColorWithRangeInfo elevations = DefaultDisplay::ramp(_elevations);
    for (const Cloud& cloud : _clouds) {
        const bool colored = cloud.statistics.maxColor > 0;
        if (mode == ColorMode::SINGLE) {
            ShaderHelper::singleColorShader(cloud.node, _singleColor);
        } else if (mode == ColorMode::RGB || (mode == ColorMode::AUTOMATIC && colored)) {
            ShaderHelper::originColorShader(cloud.node);
        } else {
            ShaderHelper::elevationColorShader(cloud.node, elevations, false);
        }
    }
}

void Scene::setPointSize(int pixels)
{
    _pointSize = std::clamp(pixels, 1, kLargestPointSize);
    VelOsgDBBrx::PointCloudHelper::setPointSize(_root, _pointSize);
}

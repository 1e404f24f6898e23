#pragma once

#include <VelOsgDBBrx/PointCloudLodOperation.h>

/// A camera-driven pass that chooses cells for orthographic cameras as finely as for the perspective of 30
/// degrees that stores are made for: points about a pixel apart. Without it they are more than four apart.
///
/// Threads: as its base.
class OrthographicLod : public VelOsgDBBrx::DynPointCloudLod
{
public:
    OrthographicLod(osgUtil::IncrementalCompileOperation* incremental,
                    VelOsgUtils::DecrementalCompileOperation* decremental);

    void operator()(osg::Object* frameStamp) override;

protected:
    ~OrthographicLod() override = default;
};

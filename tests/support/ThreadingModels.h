#pragma once

#include <gtest/gtest.h>
#include <osgViewer/ViewerBase>

#include <string>

/// Every threading model of a viewer, for tests with a parameter:
///
///     INSTANTIATE_TEST_SUITE_P(Paging, EveryModel, everyThreadingModel(), threadingModelName);
inline auto everyThreadingModel()
{
    using Base = osgViewer::ViewerBase;
    return testing::Values(Base::SingleThreaded, Base::CullDrawThreadPerContext, Base::DrawThreadPerContext,
                           Base::CullThreadPerCameraDrawThreadPerContext);
}

inline std::string
threadingModelName(const testing::TestParamInfo<osgViewer::ViewerBase::ThreadingModel>& model)
{
    switch (model.param) {
    case osgViewer::ViewerBase::SingleThreaded:
        return "SingleThreaded";
    case osgViewer::ViewerBase::CullDrawThreadPerContext:
        return "CullDrawThreadPerContext";
    case osgViewer::ViewerBase::DrawThreadPerContext:
        return "DrawThreadPerContext";
    default:
        return "CullThreadPerCameraDrawThreadPerContext";
    }
}

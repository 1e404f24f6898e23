#pragma once

#include <osgViewer/ViewerEventHandlers>

/// Saves a captured screen as the next free brxview-N.png in the working folder.
class Screenshot : public osgViewer::ScreenCaptureHandler::CaptureOperation
{
public:
    void operator()(const osg::Image& picture, unsigned contextId) override;
};

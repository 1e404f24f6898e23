#pragma once

#include <osgViewer/Viewer>

/// Takes the requests to close a window, as its close button sends them, out of the queues of the viewer's
/// windows; true when there were some. The viewer would close the window at once. Call it before each frame:
/// a request that comes while a frame is begun stays in the queue until the next one. Where
/// nothing is drawn it asks for the frame that reads a click on the close button.
bool takeCloseRequests(osgViewer::Viewer& viewer);

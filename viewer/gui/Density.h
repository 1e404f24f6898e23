#pragma once

#include <osg/GraphicsContext>

/// The size of letters, as `Gui::unit`, for a picture or a screen of so many rows of pixels.
float unitForRows(int rows);

/// The size of letters for the screen of a window.
float unitFor(const osg::GraphicsContext& window);

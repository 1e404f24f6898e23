#pragma once

#include "viewer/edit/Sight.h"
#include "viewer/scene/CameraView.h"

#include <osgViewer/Viewer>

#include <vector>

/// The pictures in the viewer's window: which there are, where they lie, and how they project. Pixels count
/// from the window's bottom left, y up, as those of events do.
///
/// Belongs to the viewer's thread; call it between frames or in the event and update traversals.
class Views
{
public:
    /// The viewer outlives the views. Its window is open.
    explicit Views(osgViewer::Viewer& viewer);

    /// The picture that the user moves about in.
    Sight main() const;

    /// The picture at a place of the window; the main one where there is none.
    Sight under(double x, double y) const;

    /// The main picture first.
    std::vector<Sight> all() const;

    /// The part of the window that pictures have; the whole window before the first call. To be called again
    /// when the window's size has changed.
    void setArea(int x, int y, int width, int height);

private:
    osgViewer::Viewer& _viewer;
};

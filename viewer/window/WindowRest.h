#pragma once

#include <osgViewer/Viewer>

#include <chrono>
#include <vector>

/// The viewer's thread rests while nothing is drawn: until the window system has something for one of the
/// viewer's windows, or for a connection of the program's own, or for a time at most. A window that is not
/// of X is looked at every hundredth of a second.
///
/// Threads: the viewer's.
class WindowRest
{
public:
    /// `connections`: file descriptors of further connections to the window system; -1 is left out. What has
    /// come over them is to be read before each rest.
    WindowRest(osgViewer::Viewer& viewer, const std::vector<int>& connections);

    void rest(std::chrono::duration<double> longest);

private:
    osgViewer::Viewer& _viewer;
    const std::vector<int> _connections;
};

#pragma once

#include <osgViewer/Viewer>

#include <memory>
#include <string>
#include <vector>

/// Files that people drag from another program and drop on a viewer's window, by the XDND protocol of X.
/// Their messages come over a connection of its own: the window's are read by the thread that draws. On other
/// window systems nothing is ever dropped.
///
/// Threads: the viewer's.
class DroppedFiles
{
public:
    /// The viewer's window is open.
    explicit DroppedFiles(osgViewer::Viewer& viewer);
    ~DroppedFiles();
    DroppedFiles(const DroppedFiles&) = delete;
    DroppedFiles& operator=(const DroppedFiles&) = delete;

    /// Answers the programs that drag; the paths that were dropped since the last call. Does not wait. Call
    /// it often: who drags waits for the answers.
    std::vector<std::string> take();

    /// Readable when there is something to answer; -1 where nothing is ever dropped.
    int connection() const;

private:
    class Target;

    std::unique_ptr<Target> _target; ///< null where there is no X
};

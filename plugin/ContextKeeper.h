#pragma once

#include <osg/GraphicsContext>
#include <osg/Matrixd>
#include <osg/Observer>
#include <osgGA/GUIEventHandler>
#include <osgViewer/View>

#include <map>

/// Registers the graphics contexts of hosts that do not know this library, unregisters them when their viewer
/// dies, and sees to it that a host that draws on demand draws until all cells are there. Used on the hosts'
/// main thread only, where events are handled and viewers die.
class ContextKeeper : private osg::Observer
{
public:
    static ContextKeeper& instance();

    /// Takes an event of `view`, which shows a cloud that asks for `budget` points (0: for none). Of several
    /// budgets in a context that is registered here the largest holds.
    void handle(const osgGA::GUIEventAdapter& event, osgViewer::View& view, unsigned budget);

private:
    struct Kept
    {
        osg::GraphicsContext* context = nullptr; ///< held by the library's registry
        bool ours = false;                       ///< registered here, not by the host
        unsigned budget = 0;                     ///< the largest that was asked for
        osg::Matrixd viewMatrix;                 ///< of the frame before
        int quietFrames = 0;                     ///< since something last moved
    };

    ContextKeeper() = default;
    ~ContextKeeper() override = default;

    Kept* keep(osgViewer::View& view);
    void beginFrame(Kept& kept, osgViewer::View& view) const;
    void objectDeleted(void* view) override;

    std::map<const osg::Referenced*, Kept> _views;
};

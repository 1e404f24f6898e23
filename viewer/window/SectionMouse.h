#pragma once

#include "viewer/camera/DoubleClick.h"
#include "viewer/window/Views.h"

#include <osg/Vec2d>
#include <osgGA/GUIEventHandler>

#include <optional>

/// Moves a section by mouse, and the divider above it: a left or middle drag moves the picture, a right drag
/// and the wheel zoom, a double click brings a place into the middle. The picture never turns. Add it after
/// what picks, and before the camera's manipulator.
class SectionMouse : public osgGA::GUIEventHandler
{
public:
    /// `views` outlives the handler.
    explicit SectionMouse(Views& views) : _views(views) {}

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    /// What a button that is down does.
    struct Drag
    {
        enum Kind
        {
            DIVIDER,
            MOVE,
            ZOOM
        };

        Kind kind;
        std::optional<SectionFrame> from; ///< when the button went down
        osg::Vec2d start;                 ///< place in the picture
    };

    bool begin(const osgGA::GUIEventAdapter& event);
    void drag(const osgGA::GUIEventAdapter& event);
    void center(const osgGA::GUIEventAdapter& event);
    void zoom(const osgGA::GUIEventAdapter& event);
    osg::Vec2d placeOf(const osgGA::GUIEventAdapter& event) const;
    double aspect() const { return _views.sectionCamera().getViewport()->aspectRatio(); }

    Views& _views;
    std::optional<Drag> _drag;
    DoubleClick _doubleClick;
};

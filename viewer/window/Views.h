#pragma once

#include "viewer/camera/SavedViews.h"
#include "viewer/camera/SectionFrame.h"
#include "viewer/camera/SectionStage.h"
#include "viewer/camera/SurveyManipulator.h"
#include "viewer/edit/Sight.h"
#include "viewer/scene/Scene.h"

#include <osgViewer/Viewer>

#include <functional>
#include <optional>
#include <vector>

/// The pictures in the viewer's window: the main one, and below it a section while one is shown. Which there
/// are, where they lie, and what they show. Pixels count from the window's bottom left, y up, as those of
/// events do.
///
/// Belongs to the viewer's thread; call it between frames or in the event and update traversals.
class Views : public SectionStage
{
public:
    /// Gives the viewer, whose window is open, a manipulator that begins at `home`, and a camera for
    /// sections. Viewer and scene outlive the views.
    Views(osgViewer::Viewer& viewer, const Scene& scene, const Look& home);

    /// What moves the camera of the main picture.
    SurveyManipulator& manipulator() const { return *_manipulator; }

    /// Views by name, which outlive this object; null where none were handed over.
    SavedViews* savedViews() const { return _savedViews; }
    void setSavedViews(SavedViews& views) { _savedViews = &views; }

    /// The picture that the user moves about in.
    Sight main() const;

    /// The picture at a place of the window; the main one where there is none.
    Sight under(double x, double y) const;

    /// The main picture first.
    std::vector<Sight> all() const;

    /// The part of the window that pictures have; the whole window before the first call. To be called again
    /// when the window's size has changed.
    void setArea(int x, int y, int width, int height);

    /// \name Section
    /// @{
    std::optional<Section> section() const override;
    void showSection(const std::optional<Section>& section) override;
    void changeSection(const Section& section) override;
    void drawSection() override;

    /// What `drawSection` does.
    void setDrawing(std::function<void()> drawing) { _drawing = std::move(drawing); }

    /// What the picture of the section shows; empty without one.
    const std::optional<SectionFrame>& frame() const { return _frame; }
    void setFrame(const SectionFrame& frame);

    const osg::Camera& sectionCamera() const { return *_camera; }
    bool isOverSection(double x, double y) const;
    /// @}

    /// \name Divider: the gap between the pictures, which the mouse moves
    /// @{
    static constexpr int kDivider = 6; ///< pixels
    bool isOnDivider(double x, double y) const;
    void moveDivider(double y);
    /// @}

    /// Where a pixel is in the picture of a camera, from -1 to 1 across it, y up.
    static osg::Vec2d placeOf(const osg::Camera& camera, double x, double y);

private:
    struct Area
    {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };

    int dividerRow() const;
    void layOut();

    osgViewer::Viewer& _viewer;
    const Scene& _scene;
    const osg::ref_ptr<SurveyManipulator> _manipulator;
    const osg::ref_ptr<osg::Camera> _camera; ///< of the section
    std::optional<SectionFrame> _frame;
    std::function<void()> _drawing;
    SavedViews* _savedViews = nullptr;
    Area _area;
    double _share = 0.4; ///< of the area's height, that a section has
};

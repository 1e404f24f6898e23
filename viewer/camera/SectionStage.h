#pragma once

#include "viewer/camera/Section.h"

#include <optional>

/// Where a section is shown: beside the main picture of a window, or as the picture of a script.
///
/// Belongs to the viewer's thread.
class SectionStage
{
public:
    virtual ~SectionStage() = default;

    /// The section that is shown; empty without one.
    virtual std::optional<Section> section() const = 0;

    /// Shows all of another section; without one, the main picture alone.
    virtual void showSection(const std::optional<Section>& section) = 0;

    /// Changes the section that is shown; the picture keeps its scale.
    virtual void changeSection(const Section& section) = 0;

    /// Lets the user click the ends of a section. Of a window alone.
    virtual void drawSection() {}
};

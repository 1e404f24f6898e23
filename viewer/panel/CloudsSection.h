#pragma once

#include "viewer/files/CloudFiles.h"
#include "viewer/operation/Operation.h"
#include "viewer/panel/FileQuestions.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The panel's list of clouds: which there are, shown or not, and what to do with their files.
///
/// Threads: the viewer's, in a part of `Gui`.
class CloudsSection
{
public:
    /// All outlive it, as does what the stage refers to.
    CloudsSection(const Stage& stage, CloudFiles& files, FileQuestions& questions);

    void draw();

    /// The cloud that keys are about: the one that was clicked last, or the first; 0 where there is none.
    uint64_t current() const;

    /// Adds a line that stays until people take it away.
    void tell(const std::string& problem);

private:
    void drawButtons();
    void drawRecent();
    void drawWaiting();
    void sortRows();
    void drawCloud(const Scene::Cloud& cloud);
    void drawPreview(const Scene::Cloud& preview);
    void drawFacts(const Scene::Cloud& cloud);
    void lookAtCloud(const Scene::Cloud& cloud);
    void drawProblems();

    const Stage _stage;
    CloudFiles& _files;
    FileQuestions& _questions;
    uint64_t _current = 0;
    std::vector<size_t> _rows;         ///< places among the scene's clouds
    std::optional<unsigned> _revision; ///< of the scene's clouds, as the rows are
    std::vector<std::string> _problems;
};

#pragma once

#include "viewer/operation/Operation.h"

#include <optional>
#include <string>
#include <vector>

/// The edits that the journals have, each with a click to go back, or forward, to how all was behind it.
///
/// Threads: the viewer's.
class HistorySection
{
public:
    explicit HistorySection(const Stage& stage) : _stage(stage) {}

    void draw();

private:
    void refresh();
    void drawStep(size_t count);
    const std::string& textOf(size_t step);

    const Stage _stage;
    std::optional<uint64_t> _revision; ///< of the edits that `_steps` is of
    std::vector<uint64_t> _clouds;     ///< likewise, their numbers
    std::vector<VelOsgDBBrx::EditStep> _steps;
    std::vector<std::string> _texts; ///< of the steps; empty until they are seen
    size_t _present = 0;             ///< the steps until the last one that is in effect
    bool _scrolls = false;           ///< to the present
};

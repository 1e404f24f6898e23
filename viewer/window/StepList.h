#pragma once

#include <VelOsgDBBrx/EditSession.h>

#include <cstddef>
#include <string>
#include <vector>

/// A list of edits in which a user chooses by keys how far to go back, or forwards again.
class StepList
{
public:
    /// The oldest step first. The last one that is in effect is chosen.
    explicit StepList(const std::vector<VelOsgDBBrx::EditStep>& steps);

    /// Up, down, and the digits of a number; false for other keys.
    bool press(int key);

    /// How many of the steps shall be in effect.
    size_t chosen() const { return _chosen; }

    /// What to show: some steps about the chosen one.
    std::vector<std::string> lines() const;

private:
    const std::vector<std::string> _steps; ///< a line for each
    size_t _chosen = 0;
    bool _isTyped = false; ///< the next digit goes on with the number
};

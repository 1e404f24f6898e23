#include "viewer/window/StepList.h"

#include "viewer/edit/EditText.h"

#include <osgGA/GUIEventAdapter>

#include <algorithm>
#include <utility>

using osgGA::GUIEventAdapter;

namespace {

constexpr size_t kShown = 15;

} // namespace

StepList::StepList(const std::vector<VelOsgDBBrx::EditStep>& steps) : _steps(describe(steps))
{
    const auto last = std::find_if(steps.rbegin(), steps.rend(),
                                   [](const VelOsgDBBrx::EditStep& step) { return step.isDone; });
    _chosen = static_cast<size_t>(steps.rend() - last);
}

bool StepList::press(int key)
{
    const bool goesOn = std::exchange(_isTyped, false);
    if (key >= '0' && key <= '9') {
        const size_t digit = static_cast<size_t>(key - '0');
        const size_t longer = 10 * _chosen + digit;
        _chosen = std::min(goesOn && longer <= _steps.size() ? longer : digit, _steps.size());
        _isTyped = true;
    } else if (key == GUIEventAdapter::KEY_Up) {
        _chosen -= std::min<size_t>(_chosen, 1);
    } else if (key == GUIEventAdapter::KEY_Down) {
        _chosen = std::min(_chosen + 1, _steps.size());
    } else {
        return false;
    }
    return true;
}

std::vector<std::string> StepList::lines() const
{
    const size_t last = std::min(std::max(_chosen + kShown / 2, kShown), _steps.size());
    const size_t first = last > kShown ? last - kShown : 0; // of the line above the first step shown
    std::vector<std::string> lines = {"How far to go back, or forwards again", ""};
    for (size_t step = first; step <= last; ++step) {
        const std::string number = std::to_string(step);
        const std::string text = step == 0 ? "before all edits" : _steps[step - 1];
        lines.push_back((step == _chosen ? "> " : "  ") +
                        std::string(4 - std::min<size_t>(4, number.size()), ' ') + number + "  " + text);
    }
    lines.insert(lines.end(), {"", "Up, Down or a number     Enter: go there     Esc: stay"});
    return lines;
}

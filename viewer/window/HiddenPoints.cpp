#include "viewer/window/HiddenPoints.h"

#include "viewer/edit/EditText.h"
#include "viewer/operation/Operations.h"

#include <VelBrx/PointCounts.h>

#include <utility>

HiddenPoints::HiddenPoints(std::vector<std::string> stores)
    : _stores(std::move(stores)), _thread([this] { count(); })
{
}

HiddenPoints::~HiddenPoints()
{
    _cancel = true;
    _thread.join();
}

void HiddenPoints::count()
{
    uint64_t points = 0;
    std::vector<std::string> concerned;
    for (const std::string& store : _stores) {
        VelBrx::PointCounts counts;
        if (_cancel) return;
        if (!VelBrx::countClassesAndHidden(store, _cancel, counts) || counts.hidden == 0) continue;
        points += counts.hidden;
        concerned.push_back(store);
    }
    if (!concerned.empty())
        _lines = {describeHidden(points, concerned, _stores.size()),
                  "E and then " + keyOf("reset") + " shows them all, E, a and " + keyOf("uncull") +
                      " those under a polygon"};
    _counted = true;
}

std::optional<std::vector<std::string>> HiddenPoints::take()
{
    if (!_counted.exchange(false)) return std::nullopt;
    return std::move(_lines);
}

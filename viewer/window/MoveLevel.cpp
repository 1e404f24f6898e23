#include "viewer/window/MoveLevel.h"

#include <VelOsgDBBrx/CalcLevelVisitor.h>

#include <algorithm>

namespace {

constexpr double kSmoothFrame = 1.0 / 30.0; // seconds

}

int deepestLevelWithin(const std::map<int, int>& pointsByLevel, double limit)
{
    int deepest = 0;
    double points = 0;
    for (const auto& [level, count] : pointsByLevel) {
        points += count;
        if (points > limit) break;
        deepest = level;
    }
    return deepest;
}

MoveLevel::MoveLevel(osg::Node* scene, VelOsgDBBrx::VelIncrementalCompileOperation* operation)
    : _scene(scene), _operation(operation)
{
}

void MoveLevel::wholeFrameTook(double seconds)
{
    VelOsgDBBrx::CalcLevelVisitor levels;
    _scene->accept(levels);
    double points = 0;
    for (const auto& level : levels.getLevelWithNum())
        points += level.second;
    const double pointsPerSecond = points / std::max(seconds, 1e-6);
    _operation->setMoveLevel(deepestLevelWithin(levels.getLevelWithNum(), pointsPerSecond * kSmoothFrame));
}

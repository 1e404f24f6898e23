#include <VelOsgDBBrx/MoveLevel.h>

#include <VelOsgDBBrx/CalcLevelVisitor.h>

#include <algorithm>

namespace VelOsgDBBrx {

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

MoveLevel::MoveLevel(osg::Node* scene, VelIncrementalCompileOperation* operation)
    : _scene(scene), _operation(operation)
{
}

void MoveLevel::wholeFrameTook(double seconds, double framesPerSecond)
{
    CalcLevelVisitor levels;
    _scene->accept(levels);
    _points = 0;
    for (const auto& level : levels.getLevelWithNum())
        _points += static_cast<uint64_t>(level.second);
    const double pointsPerSecond = static_cast<double>(_points) / std::max(seconds, 1e-6);
    _operation->setMoveLevel(deepestLevelWithin(levels.getLevelWithNum(), pointsPerSecond / framesPerSecond));
}

} // namespace VelOsgDBBrx

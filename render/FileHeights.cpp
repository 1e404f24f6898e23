#include "render/FileHeights.h"

#include <osg/Uniform>
#include <osg/ValueObject>

namespace {

constexpr char kRange[] = "elevationEntry";
constexpr char kMark[] = "fileHeights";

/// The range that is in force by the innermost state set that gives one.
const osg::Uniform* rangeIn(const osgUtil::StateGraph& applied)
{
    for (const osgUtil::StateGraph* graph = &applied; graph; graph = graph->_parent)
        if (const osg::StateSet* const state = graph->getStateSet())
            if (const osg::Uniform* const range = state->getUniform(kRange)) return range;
    return nullptr;
}

bool isMarked(const osg::Uniform& range)
{
    bool marked = false;
    return range.getUserValue(kMark, marked) && marked;
}

} // namespace

void markFileHeights(osg::StateSet& state)
{
    if (osg::Uniform* const range = state.getUniform(kRange)) range->setUserValue(kMark, true);
}

osg::ref_ptr<const osg::StateSet> FileHeights::translated(const osgUtil::StateGraph& applied,
                                                          const osg::Matrixd& model, double origin)
{
    const osg::Uniform* const given = rangeIn(applied);
    osg::Vec2f file;
    if (!given || !isMarked(*given) || !given->get(file)) return nullptr;
    const double stretch = model(2, 2);
    const osg::Vec2f range(static_cast<float>((file.x() - origin) * stretch + model(3, 2)),
                           static_cast<float>(file.y() * stretch));
    if (range == file || range.y() == 0) return nullptr;

    const VelThreads::Lock lock(_mutex);
    if (!_state || _range != range) {
        _range = range;
        _state = new osg::StateSet;
        _state->addUniform(new osg::Uniform(kRange, range));
    }
    return _state;
}

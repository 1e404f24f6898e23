#include "render/StageEnd.h"

#include <osg/Drawable>
#include <osgUtil/RenderStage>

#include <algorithm>
#include <climits>

namespace {

osg::Drawable* drawsNothing()
{
    static const osg::ref_ptr<osg::Drawable> drawable = [] {
        osg::ref_ptr<osg::Drawable> nothing = new osg::Drawable;
        nothing->setDataVariance(osg::Object::DYNAMIC);
        nothing->setSupportsDisplayList(false);
        nothing->setUseVertexArrayObject(false);
        return nothing;
    }();
    return drawable;
}

bool isStageEnd(const osgUtil::StateGraph* graph)
{
    return graph->_leaves.size() == 1 && graph->_leaves.front()->getDrawable() == drawsNothing();
}

} // namespace

void holdFrameUntilStageEnds(osgUtil::CullVisitor& cull)
{
    constexpr int kLast = INT_MAX;
    osgUtil::RenderBin& bin = *cull.getCurrentRenderBin()->getStage()->find_or_insert(kLast, "RenderBin");
    const auto& graphs = bin.getStateGraphList();
    if (std::any_of(graphs.begin(), graphs.end(), isStageEnd)) return;

    // Stages of one traversal share the root: each needs a graph, and so a state set, of its own.
    const osg::ref_ptr<osg::StateSet> noState = new osg::StateSet;
    const osg::ref_ptr<osgUtil::RenderLeaf> leaf =
        new osgUtil::RenderLeaf(drawsNothing(), cull.getProjectionMatrix(), cull.getModelViewMatrix(), 0);
    // A drawn stage clears its graphs, and the next one still starts from the last leaf.
    noState->setUserData(leaf);
    osgUtil::StateGraph* graph = cull.getRootStateGraph()->find_or_insert(noState);
    graph->addLeaf(leaf);
    bin.addStateGraph(graph);
}

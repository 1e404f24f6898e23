#pragma once

#include <osgUtil/CullVisitor>

/// Makes the frame thread wait until the render stage that `cull` fills has put all state behind it.
///
/// OSG lets the frame thread go on after the last leaf with dynamic state, while the draw thread still walks
/// the state sets that it takes off; a uniform added to one of them then would be a race. This adds one more
/// dynamic leaf, which draws nothing, has no state above it and comes last: state is taken off before it.
/// Once a stage and frame, however many clouds ask. Called in the cull traversal, by its thread.
void holdFrameUntilStageEnds(osgUtil::CullVisitor& cull);

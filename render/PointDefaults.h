#pragma once

#include <osg/StateSet>
#include <osgUtil/StateGraph>

/// The state that a point cloud is drawn with where nobody says otherwise: the points' stored colours at size
/// 1, hidden points hidden, everything else off.
///
/// Given the state sets that apply to a cloud, returns a state set with the defaults that these lack. Pushed
/// behind them, it fills the gaps and overrules nothing, so that plain state above the cloud or on it still
/// wins. The result lives as long as the process and is not to be changed. Any thread may call it.
const osg::StateSet* missingPointDefaults(const osgUtil::StateGraph& applied);

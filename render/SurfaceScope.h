#pragma once

#include <osg/StateSet>
#include <osg/ref_ptr>
#include <osgUtil/RenderBin>
#include <osgUtil/StateGraph>

/// Tells the clouds below a `SurfaceView` in one cull traversal how they take part. It is pushed above them,
/// and the nearest holds.
class SurfaceScope : public osg::StateSet
{
public:
    /// Below it clouds are drawn without a surface.
    SurfaceScope() = default;

    /// Clouds draw the samples of the surface with `sampleState` in `sampleBin`, and themselves with
    /// `pointState`, unless that is null.
    SurfaceScope(osgUtil::RenderBin& sampleBin, const osg::StateSet* sampleState,
                 const osg::StateSet* pointState)
        : _sampleBin(&sampleBin), _sampleState(sampleState), _pointState(pointState)
    {
    }

    /// The scope that holds where `applied` is in force; null where there is no surface.
    static const SurfaceScope* of(const osgUtil::StateGraph& applied)
    {
        for (const osgUtil::StateGraph* graph = &applied; graph; graph = graph->_parent) {
            const auto* scope = dynamic_cast<const SurfaceScope*>(graph->getStateSet());
            if (scope) return scope->_sampleBin ? scope : nullptr;
        }
        return nullptr;
    }

    osgUtil::RenderBin* sampleBin() const { return _sampleBin; }
    const osg::StateSet* sampleState() const { return _sampleState; }
    const osg::StateSet* pointState() const { return _pointState; }

protected:
    ~SurfaceScope() override = default;

private:
    osgUtil::RenderBin* const _sampleBin = nullptr; ///< lives as long as the traversal
    const osg::ref_ptr<const osg::StateSet> _sampleState;
    const osg::ref_ptr<const osg::StateSet> _pointState;
};

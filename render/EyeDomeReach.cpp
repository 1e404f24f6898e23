#include "render/EyeDomeReach.h"

#include <osg/Uniform>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace {

const std::string kReach = "edlReach";

/// False, and without the warning that OpenSceneGraph prints, where the uniform is of another type.
template <typename Value>
bool read(const osg::Uniform& uniform, osg::Uniform::Type type, Value& value)
{
    return uniform.getType() == type && uniform.get(value);
}

/// The largest of all values that are set anywhere: whichever is in force, it is not larger.
class Largest
{
public:
    void add(const osg::StateSet& state)
    {
        if (state.getUniformList().empty()) return;
        raise(_pointSize, state.getUniform(kPointSize));
        raise(_linePointSize, state.getUniform(kLinePointSize));
        raise(_radius, state.getUniform(kRadius));
        bool isOn = false;
        if (const osg::Uniform* const line = state.getUniform(kLine))
            _hasLine = !read(*line, osg::Uniform::BOOL, isOn) || isOn || _hasLine;
        osg::Vec4f sizes;
        if (const osg::Uniform* const spacing = state.getUniform(kSpacing)) {
            _isKnown = read(*spacing, osg::Uniform::FLOAT_VEC4, sizes) && _isKnown;
            _pointSize = std::max({_pointSize, sizes.y(), sizes.z()});
        }
    }

    bool isKnown() const { return _isKnown; }

    float reach() const
    {
        constexpr float kLeastOnALine = 10; // of which modes draw those of an enhanced line
        constexpr float kRounding = 2;      // of places on the screen, and of texels
        const float width = _hasLine ? std::max({_pointSize, _linePointSize, kLeastOnALine}) : _pointSize;
        return std::ceil(width / 2 + _radius + kRounding);
    }

private:
    void raise(float& largest, const osg::Uniform* uniform)
    {
        if (!uniform) return;
        int whole = 0;
        float value = 0;
        if (read(*uniform, osg::Uniform::INT, whole))
            value = static_cast<float>(whole);
        else
            _isKnown = read(*uniform, osg::Uniform::FLOAT, value) && _isKnown;
        largest = std::max(largest, std::fabs(value));
    }

    inline static const std::string kPointSize = "pointSize";
    inline static const std::string kSpacing = "spacingSizes";
    inline static const std::string kLine = "activelineEnHancement";
    inline static const std::string kLinePointSize = "lineEnHancementPointSize";
    inline static const std::string kRadius = "radius";

    float _pointSize = 1;
    float _linePointSize = 0;
    float _radius = 0;
    bool _hasLine = false;
    bool _isKnown = true;
};

} // namespace

osg::ref_ptr<const osg::StateSet> EyeDomeReach::state(const osgUtil::StateGraph& applied,
                                                      const std::vector<const osg::StateSet*>& below)
{
    Largest largest;
    for (const osgUtil::StateGraph* graph = &applied; graph; graph = graph->_parent)
        if (const osg::StateSet* const state = graph->getStateSet()) largest.add(*state);
    for (const osg::StateSet* state : below)
        if (state) largest.add(*state);
    if (!largest.isKnown()) return nullptr;

    const float reach = largest.reach();
    const VelThreads::Lock lock(_mutex);
    if (!_state || _reach != reach) {
        _reach = reach;
        _state = new osg::StateSet;
        _state->addUniform(new osg::Uniform(kReach.c_str(), reach));
    }
    return _state;
}

double EyeDomeReach::in(const osg::State& drawn)
{
    const auto stack = drawn.getUniformMap().find(kReach);
    float reach = 0;
    if (stack == drawn.getUniformMap().end() || stack->second.uniformVec.empty() ||
        !stack->second.uniformVec.back().first->get(reach))
        return std::numeric_limits<double>::infinity();
    return reach;
}

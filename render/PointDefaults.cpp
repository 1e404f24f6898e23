#include "render/PointDefaults.h"

#include "render/PointPrograms.h"

#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/Camera>
#include <osg/Program>
#include <osg/Uniform>

#include <algorithm>
#include <bitset>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#ifndef GL_VERTEX_PROGRAM_POINT_SIZE
#define GL_VERTEX_PROGRAM_POINT_SIZE 0x8642
#endif

namespace {

using UniformList = std::vector<osg::ref_ptr<osg::Uniform>>;

osg::ref_ptr<osg::Uniform> identityTable()
{
    constexpr unsigned kLevels = 256;
    osg::ref_ptr<osg::Uniform> table = new osg::Uniform(osg::Uniform::FLOAT, "BrightWithContrast", kLevels);
    for (unsigned level = 0; level < kLevels; ++level)
        table->setElement(level, static_cast<float>(level));
    return table;
}

/// Programs are shared between clouds, and a program keeps the uniforms of the cloud drawn last: each uniform
/// that some cloud may leave unset has to be here.
const UniformList& defaultUniforms()
{
    static const UniformList uniforms = {
        new osg::Uniform("pointSize", 1),
        new osg::Uniform("selectColor", VelOsgDBBrx::ShaderHelper::getSelectColor()),
        new osg::Uniform("cullColor", osg::Vec4f(1, 0, 0, 1)),
        new osg::Uniform("activeCullModel", true),
        new osg::Uniform("activeClip", false),
        new osg::Uniform("activeNormal", false),
        new osg::Uniform("activeClassFilter", false),
        new osg::Uniform("activeDClipPlane", false),
        new osg::Uniform("cloudPlaneNum", 0),
        new osg::Uniform("isUseSectionPlane", false),
        new osg::Uniform("sectionNum", 0),
        new osg::Uniform("sectionOffset", osg::Vec4d()),
        new osg::Uniform("activelineEnHancement", false),
        new osg::Uniform("lineEnHancementColor", osg::Vec4f(1, 1, 0, 1)),
        new osg::Uniform("lineEnHancementPointSize", 5),
        new osg::Uniform("normalLight", osg::Vec4f()),
        new osg::Uniform("edlBalanced", false),
        new osg::Uniform("blendIntensity", false),
        new osg::Uniform("intensityPair", osg::Vec2f(0, 1)),
        new osg::Uniform("isUseBCTable", false),
        new osg::Uniform("lpcID", 0u),
        new osg::Uniform("rpcID", 0u),
        identityTable(),
    };
    return uniforms;
}

/// They switch more on than the points themselves.
constexpr const char* kExtras[] = {
    "activeClip",    "activeNormal",      "activeClassFilter",     "activeDClipPlane",
    "cloudPlaneNum", "isUseSectionPlane", "activelineEnHancement", "normalLight"};

/// One bit a default uniform, then these.
constexpr size_t kMaxUniforms = 30;
constexpr size_t kProgramBit = kMaxUniforms;
constexpr size_t kPointSizeModeBit = kMaxUniforms + 1;
constexpr size_t kCellExtrasBit = kMaxUniforms + 2;  ///< a cell gives one of kExtras
constexpr size_t kPickTargetsBit = kMaxUniforms + 3; ///< there may be targets beside the colour's
using Given = std::bitset<kMaxUniforms + 4>;

std::map<std::string, size_t> numberUniforms()
{
    std::map<std::string, size_t> bits;
    for (size_t bit = 0; bit < defaultUniforms().size(); ++bit)
        bits[defaultUniforms()[bit]->getName()] = bit;
    return bits;
}

const std::map<std::string, size_t>& uniformBits()
{
    static const std::map<std::string, size_t> bits = numberUniforms();
    return bits;
}

void addUniforms(const osg::StateSet& state, Given& given)
{
    for (const auto& entry : state.getUniformList()) {
        const auto bit = uniformBits().find(entry.first);
        if (bit != uniformBits().end()) given.set(bit->second);
    }
}

/// Whether all that the camera draws goes to one colour target: a window's, or its only attachment. A camera
/// below another one may draw into that one's.
bool hasOneTarget(const osg::Camera& camera)
{
    bool hasColor = false;
    for (const auto& attachment : camera.getBufferAttachmentMap()) {
        if (attachment.first >= osg::Camera::COLOR_BUFFER1) return false;
        hasColor = hasColor || attachment.first == osg::Camera::COLOR_BUFFER ||
                   attachment.first == osg::Camera::COLOR_BUFFER0;
    }
    const bool bindsItsOwn = camera.getInitialDrawCallback() || camera.getPreDrawCallback();
    return hasColor || (camera.getView() && !bindsItsOwn);
}

Given givenBy(const osgUtil::StateGraph& applied, const osg::StateSet* below)
{
    Given given;
    if (below) addUniforms(*below, given);
    const osg::StateAttribute* program = nullptr; // the one that is in force
    for (const osgUtil::StateGraph* graph = &applied; graph; graph = graph->_parent) {
        const osg::StateSet* state = graph->getStateSet();
        if (!state) continue;
        addUniforms(*state, given);
        if (!program) program = state->getAttribute(osg::StateAttribute::PROGRAM);
        if (state->getMode(GL_VERTEX_PROGRAM_POINT_SIZE) != osg::StateAttribute::INHERIT)
            given.set(kPointSizeModeBit);
        if (state->getAttribute(osg::StateAttribute::FRAME_BUFFER_OBJECT)) given.set(kPickTargetsBit);
    }
    given.set(kProgramBit, program && !isOccluder(*program));
    return given;
}

/// Whether nobody gives a uniform that switches more on than the points themselves.
bool isPlain(const Given& given)
{
    if (given[kCellExtrasBit]) return false;
    for (const char* name : kExtras)
        if (given[uniformBits().at(name)]) return false;
    return true;
}

osg::ref_ptr<osg::StateSet> makeDefaultsBeside(const Given& given)
{
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    for (size_t bit = 0; bit < defaultUniforms().size(); ++bit) {
        if (!given[bit]) state->addUniform(defaultUniforms()[bit]);
    }
    if (!given[kProgramBit]) state->setAttributeAndModes(pointProgram(PointProgram::Origin));
    if (!given[kPointSizeModeBit]) state->setMode(GL_VERTEX_PROGRAM_POINT_SIZE, osg::StateAttribute::ON);
    if (isPlain(given)) state->setDefine("NO_EXTRAS");
    if (!given[kPickTargetsBit]) state->setDefine("COLOR_ALONE");
    state->setDefine("IN_CLOUD");
    return state;
}

/// Whether the state set of a cell switches something on that the programs of plain clouds leave out.
bool extendsPrograms(const osg::StateSet* cellState)
{
    return std::any_of(std::begin(kExtras), std::end(kExtras),
                       [cellState](const char* name) { return cellState->getUniform(name); });
}

} // namespace

const osg::StateSet* PointDefaults::missingFrom(osgUtil::CullVisitor& cull, const osg::StateSet* below,
                                                const std::vector<const osg::StateSet*>& cells)
{
    Given given = givenBy(*cull.getCurrentStateGraph(), below);
    if (!hasOneTarget(*cull.getCurrentCamera())) given.set(kPickTargetsBit);
    given.set(kCellExtrasBit, std::any_of(cells.begin(), cells.end(), extendsPrograms));
    const VelThreads::Lock lock(_mutex);
    osg::ref_ptr<osg::StateSet>& state = _states[given.to_ulong()];
    if (!state) state = makeDefaultsBeside(given);
    return state;
}

void PointDefaults::resizeGLObjectBuffers(unsigned maxSize)
{
    const VelThreads::Lock lock(_mutex);
    for (const auto& entry : _states)
        entry.second->resizeGLObjectBuffers(maxSize);
}

void PointDefaults::releaseGLObjects(osg::State* state)
{
    const VelThreads::Lock lock(_mutex);
    for (const auto& entry : _states)
        entry.second->releaseGLObjects(state);
}

#include "render/PointPrograms.h"

#include "render/OpenGLSupport.h"
#include "render/ShaderText.h"

#include <VelThreads/Mutex.h>

#include <osg/GLExtensions>
#include <osg/Shader>
#include <osg/observer_ptr>

#include <map>

namespace {

constexpr char kOccluderShader[] = "occluder.vert";

osg::ref_ptr<osg::Shader> makeShader(osg::Shader::Type type, const std::string& name)
{
    osg::ref_ptr<osg::Shader> shader = new osg::Shader(type, shaderText(name));
    shader->setName(name);
    return shader;
}

/// `identifierOutput` is what the fragment shader calls the second of the five outputs. A shader may lack
/// outputs.
osg::ref_ptr<osg::Program> makeProgram(const std::string& vertexShader, const std::string& fragmentShader,
                                       const char* identifierOutput = "pIntAttribute")
{
    osg::ref_ptr<osg::Program> program = new NamedProgram;
    program->setName(vertexShader);
    program->addShader(makeShader(osg::Shader::VERTEX, vertexShader));
    program->addShader(makeShader(osg::Shader::FRAGMENT, fragmentShader));
    program->addBindFragDataLocation("fragColor", 0);
    program->addBindFragDataLocation(identifierOutput, 1);
    program->addBindFragDataLocation("pFloatAttribute", 2);
    program->addBindFragDataLocation("pFPositionAttribute", 3);
    program->addBindFragDataLocation("pIPositionAttribute", 4);
    return program;
}

osg::ref_ptr<osg::Program> makePointProgram(const std::string& vertexShader)
{
    return makeProgram(vertexShader, "point.frag");
}

osg::ref_ptr<osg::Program> makeLitProgram(const std::string& vertexShader)
{
    osg::ref_ptr<osg::Program> program = makeProgram(vertexShader, "lit.frag");
    program->addShader(makeShader(osg::Shader::GEOMETRY, "lit.geom"));
    program->setParameter(GL_GEOMETRY_VERTICES_OUT_EXT, 3);
    program->setParameter(GL_GEOMETRY_INPUT_TYPE_EXT, GL_TRIANGLES);
    program->setParameter(GL_GEOMETRY_OUTPUT_TYPE_EXT, GL_TRIANGLE_STRIP);
    return program;
}

/// Named by what it draws: its vertices say nothing.
osg::ref_ptr<osg::Program> makeScreenProgram(const std::string& fragmentShader)
{
    osg::ref_ptr<osg::Program> program = makeProgram("screen.vert", fragmentShader);
    program->setName(fragmentShader);
    return program;
}

osg::ref_ptr<osg::Program> makeProgram(PointProgram program)
{
    switch (program) {
    case PointProgram::Origin:
        return makePointProgram("origin.vert");
    case PointProgram::Single:
        return makePointProgram("single.vert");
    case PointProgram::Intensity:
        return makePointProgram("intensity.vert");
    case PointProgram::Elevation:
        return makePointProgram("elevation.vert");
    case PointProgram::Classification:
        return makePointProgram("classification.vert");
    case PointProgram::PointSource:
        return makePointProgram("point_source.vert");
    case PointProgram::ReturnNumber:
        return makePointProgram("return_number.vert");
    case PointProgram::NumberOfReturns:
        return makePointProgram("number_of_returns.vert");
    case PointProgram::FlightLine:
        return makePointProgram("flight_line.vert");
    case PointProgram::GpsTime:
        return makePointProgram("gps_time.vert");
    case PointProgram::Changed:
        return makePointProgram("changed.vert");
    case PointProgram::Occluder:
        return makeProgram(kOccluderShader, "occluder.frag");
    case PointProgram::Surface:
        return makeProgram("surface.vert", "surface.frag");
    case PointProgram::SurfacePull:
        return makeScreenProgram("surface_pull.frag");
    case PointProgram::SurfacePush:
        return makeScreenProgram("surface_push.frag");
    case PointProgram::SurfaceRelief:
        return makeScreenProgram("surface_relief.frag");
    case PointProgram::SurfaceShade:
        return makeScreenProgram("surface_shade.frag");
    case PointProgram::ElevationLit:
        return makeLitProgram("elevation_lit.vert");
    case PointProgram::ClassificationLit:
        return makeLitProgram("classification_lit.vert");
    case PointProgram::EyeDome:
        return makeProgram("edl.vert", "edl.frag", "pAttribute");
    }
    return nullptr;
}

} // namespace

osg::ref_ptr<osg::Program> pointProgram(PointProgram program)
{
    static VelThreads::Mutex mutex;
    static std::map<PointProgram, osg::observer_ptr<osg::Program>> programs VEL_GUARDED_BY(mutex);
    const VelThreads::Lock lock(mutex);
    osg::ref_ptr<osg::Program> shared;
    if (!programs[program].lock(shared)) {
        shared = makeProgram(program);
        programs[program] = shared;
    }
    return shared;
}

bool NamedProgram::become(const std::string& name)
{
    for (int kind = 0; kind <= static_cast<int>(PointProgram::EyeDome); ++kind) {
        const osg::ref_ptr<osg::Program> program = makeProgram(static_cast<PointProgram>(kind));
        if (program->getName() != name) continue;
        setName(name);
        for (unsigned i = 0; i < program->getNumShaders(); ++i)
            addShader(program->getShader(i));
        for (const auto& [output, location] : program->getFragDataBindingList())
            addBindFragDataLocation(output, location);
        for (const GLenum parameter :
             {GL_GEOMETRY_VERTICES_OUT_EXT, GL_GEOMETRY_INPUT_TYPE_EXT, GL_GEOMETRY_OUTPUT_TYPE_EXT})
            setParameter(parameter, program->getParameter(parameter));
        return true;
    }
    return false;
}

void NamedProgram::compileGLObjects(osg::State& state) const
{
    if (!lacksOpenGL(state))
        osg::Program::compileGLObjects(state);
    else // without shaders: those who use it meet no error
        state.get<osg::GLExtensions>()->glLinkProgram(getPCP(state)->getHandle());
}

void NamedProgram::apply(osg::State& state) const
{
    if (!lacksOpenGL(state)) osg::Program::apply(state);
}

void NamedProgram::releaseGLObjects(osg::State* state) const
{
    if (state) forgetOpenGL(*state);
    osg::Program::releaseGLObjects(state);
}

bool isOccluder(const osg::StateAttribute& program)
{
    return program.getName() == kOccluderShader;
}

bool isOccluderInForce(const osgUtil::StateGraph& applied)
{
    for (const osgUtil::StateGraph* graph = &applied; graph; graph = graph->_parent) {
        const osg::StateSet* state = graph->getStateSet();
        const osg::StateAttribute* program =
            state ? state->getAttribute(osg::StateAttribute::PROGRAM) : nullptr;
        if (program) return isOccluder(*program);
    }
    return false;
}

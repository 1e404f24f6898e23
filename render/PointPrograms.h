#pragma once

#include <osg/Program>
#include <osgUtil/StateGraph>

#include <string>

/// The shader programs of the colour modes.
enum class PointProgram
{
    Origin,
    Single,
    Intensity,
    Elevation,
    Classification,
    PointSource,
    ReturnNumber,
    NumberOfReturns,
    FlightLine,
    GpsTime,
    Changed,
    Occluder,          ///< for whatever is no point, in front of points that are picked
    Surface,           ///< the points of a surface
    SurfacePull,       ///< a coarser level of them
    SurfacePush,       ///< a level of the closed surface
    SurfaceRelief,     ///< its shade
    SurfaceShade,      ///< the surface, as it is seen
    ElevationLit,      ///< for triangle meshes, writes no picking outputs
    ClassificationLit, ///< for triangle meshes, writes no picking outputs
    EyeDome            ///< the second pass of eye-dome lighting
};

/// The program, shared by every node of the process that uses it at the moment; nobody changes it. It goes
/// with its last user, so that no program outlives the graphics context that it was linked in. Any thread may
/// call it.
osg::ref_ptr<osg::Program> pointProgram(PointProgram program);

/// What `pointProgram` gives: scene files keep it by its name and not by the text of its shaders, which is
/// this version's own.
class NamedProgram : public osg::Program
{
public:
    NamedProgram() = default;

    /// The program of the same name, whatever is asked for: osg::Shader's copies forget their defines.
    NamedProgram(const NamedProgram& other, const osg::CopyOp&) : osg::Program() { become(other.getName()); }

    osg::Object* cloneType() const override { return new NamedProgram; }
    osg::Object* clone(const osg::CopyOp& copyOp) const override { return new NamedProgram(*this, copyOp); }
    bool isSameKindAs(const osg::Object* other) const override
    {
        return dynamic_cast<const NamedProgram*>(other) != nullptr;
    }
    const char* libraryName() const override { return "brx"; }
    const char* className() const override { return "PointProgram"; }

    /// Becomes the program of this name, once. False where there is none.
    bool become(const std::string& name);

    /// Nothing happens where OpenGL is too little: the compiler's complaints would help nobody.
    void compileGLObjects(osg::State& state) const override;
    void apply(osg::State& state) const override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

protected:
    ~NamedProgram() override = default;
};

/// Whether a program is `PointProgram::Occluder`, which says nothing about how points look.
bool isOccluder(const osg::StateAttribute& program);

/// Whether the program that the state sets applied so far put in force is `PointProgram::Occluder`: points
/// are being picked.
bool isOccluderInForce(const osgUtil::StateGraph& applied);

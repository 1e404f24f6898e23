#pragma once

#include <osg/Program>

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
    Occluder,          ///< for whatever is no point, in front of points that are picked
    ElevationLit,      ///< for triangle meshes, writes no picking outputs
    ClassificationLit, ///< for triangle meshes, writes no picking outputs
    EyeDome            ///< the second pass of eye-dome lighting
};

/// The program, shared by every node of the process that uses it at the moment; nobody changes it. It goes
/// with its last user, so that no program outlives the graphics context that it was linked in. Any thread may
/// call it.
osg::ref_ptr<osg::Program> pointProgram(PointProgram program);

/// Whether a program is `PointProgram::Occluder`, which says nothing about how points look.
bool isOccluder(const osg::StateAttribute& program);

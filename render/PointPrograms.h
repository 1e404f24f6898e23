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
    ElevationLit,     ///< for triangle meshes, writes no picking outputs
    ClassificationLit ///< for triangle meshes, writes no picking outputs
};

/// The program, made at the first call and shared by every node of the process; nobody changes it. Any thread
/// may call it.
osg::Program* pointProgram(PointProgram program);

/// A program of its own for the second pass of eye-dome lighting.
osg::ref_ptr<osg::Program> makeEyeDomeProgram();

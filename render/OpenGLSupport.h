#pragma once

#include <osg/GLExtensions>
#include <osg/State>

/// Whether a context's OpenGL is too little for the point programs.
bool lacksOpenGL(const osg::GLExtensions& extensions);

/// Whether that is known; it is not before the context has drawn once. Any thread may call it while the
/// context lives.
bool isKnownToLackOpenGL(const osg::State& state);

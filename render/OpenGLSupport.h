#pragma once

#include <osg/State>

/// Whether a context's OpenGL is known to be too little for the point programs. It is not known before the
/// context has drawn once. Any thread may call it while the context lives.
bool lacksOpenGL(const osg::State& state);

#pragma once

#include <osg/State>

/// Whether the OpenGL of a context is too old for the point programs. The context is current in this thread.
bool lacksOpenGL(osg::State& state);

/// Whether `lacksOpenGL` has found that, which it has not before the context drew once. Any thread.
bool isKnownToLackOpenGL(const osg::State& state);

/// Forgets what was found: another context may get the number of one that is closed. Any thread.
void forgetOpenGL(const osg::State& state);

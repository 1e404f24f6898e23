#include "loading/ModelMatrix.h"

#include <osg/Camera>
#include <osg/GLExtensions>
#include <osg/Matrixd>
#include <osg/Program>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Uniform>

namespace {

/// The inverse of a view matrix, computed once for the many cells that one camera draws in a row.
const osg::Matrixd& inverseOf(const osg::Matrixd& view)
{
    thread_local osg::Matrixd lastView;
    thread_local osg::Matrixd lastInverse;
    if (view != lastView) {
        lastView = view;
        lastInverse = osg::Matrixd::inverse(view);
    }
    return lastInverse;
}

void loadModelMatrix(osg::RenderInfo& renderInfo)
{
    static const unsigned kModelMatrixId = osg::Uniform::getNameID("modelMatrix");

    const osg::State& state = *renderInfo.getState();
    const osg::Program::PerContextProgram* program = state.getLastAppliedProgramObject();
    if (!program) return;
    const GLint location = program->getUniformLocation(kModelMatrixId);
    if (location < 0) return;

    osg::Matrixd model = state.getModelViewMatrix();
    if (const osg::Camera* camera = renderInfo.getCurrentCamera())
        model.postMult(inverseOf(camera->getViewMatrix()));
    state.get<osg::GLExtensions>()->glUniformMatrix4dv(location, 1, GL_FALSE, model.ptr());
}

} // namespace

void ModelMatrix::drawImplementation(osg::RenderInfo& renderInfo, const osg::Drawable* drawable) const
{
    loadModelMatrix(renderInfo);
    drawable->drawImplementation(renderInfo);
}

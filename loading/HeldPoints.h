#pragma once

#include <osg/PrimitiveSet>

/// The points of a cell of which a part could not be mapped. It states the number of points that the cell
/// declares, and draws and hands out those that the arrays hold, so that nobody reads past them.
class HeldPoints : public osg::DrawArrays
{
public:
    HeldPoints(GLsizei declared, GLsizei held) : osg::DrawArrays(GL_POINTS, 0, declared), _held(held) {}

    /// A plain primitive set of the points that are there.
    osg::Object* clone(const osg::CopyOp&) const override
    {
        return new osg::DrawArrays(_mode, _first, _held);
    }

    void draw(osg::State&, bool) const override { glDrawArrays(_mode, _first, _held); }
    void accept(osg::PrimitiveFunctor& functor) const override { functor.drawArrays(_mode, _first, _held); }
    void accept(osg::PrimitiveIndexFunctor& functor) const override
    {
        functor.drawArrays(_mode, _first, _held);
    }

protected:
    ~HeldPoints() override = default;

private:
    const GLsizei _held;
};

#pragma once

#include <osgGA/GUIEventHandler>

/// Event callback of a cloud: hands the events of the view that shows it to the keeper of contexts. Scene
/// files keep it.
class KeepContext : public osgGA::GUIEventHandler
{
public:
    explicit KeepContext(unsigned budget = 0) : _budget(budget) {}
    KeepContext(const KeepContext& other, const osg::CopyOp& copyOp)
        : osg::Object(other, copyOp), osg::Callback(other, copyOp), osgGA::GUIEventHandler(other, copyOp),
          _budget(other._budget)
    {
    }
    META_Object(brx, KeepContext)

        /// Largest number of points that the cloud's host asked for in a context; 0: the library's default.
        unsigned getBudget() const
    {
        return _budget;
    }
    void setBudget(unsigned budget) { _budget = budget; }

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action, osg::Object* object,
                osg::NodeVisitor* visitor) override;

private:
    unsigned _budget;
};

#pragma once

#include <VelThreads/Mutex.h>

#include <osg/ref_ptr>

/// An object that any thread may replace at any time; who uses it takes a reference for each use.
template <class Object>
class Slot
{
public:
    osg::ref_ptr<Object> get() const
    {
        const VelThreads::Lock lock(_mutex);
        return _object;
    }
    void set(Object* object)
    {
        osg::ref_ptr<Object> held = object; // the old one is freed outside the lock
        const VelThreads::Lock lock(_mutex);
        _object.swap(held);
    }

private:
    mutable VelThreads::Mutex _mutex;
    osg::ref_ptr<Object> _object VEL_GUARDED_BY(_mutex);
};

#pragma once

#include <osg/Camera>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <algorithm>
#include <vector>

/// What is drawn to on the way to each of some cameras' pictures. It observes the cameras, and forgets those
/// that are gone. Not synchronised.
template <class Target>
class CameraTargets
{
public:
    struct Entry
    {
        osg::observer_ptr<osg::Camera> camera;
        osg::ref_ptr<Target> target;
    };

    /// The place of the camera's target; null at first.
    osg::ref_ptr<Target>& of(osg::Camera& camera)
    {
        _entries.erase(std::remove_if(_entries.begin(), _entries.end(),
                                      [](const Entry& entry) { return !entry.camera.valid(); }),
                       _entries.end());
        auto entry = std::find_if(_entries.begin(), _entries.end(),
                                  [&camera](const Entry& known) { return known.camera == &camera; });
        if (entry == _entries.end()) entry = _entries.insert(entry, Entry{&camera, nullptr});
        return entry->target;
    }

    auto begin() const { return _entries.begin(); }
    auto end() const { return _entries.end(); }

private:
    std::vector<Entry> _entries;
};

#pragma once

#include <osg/Array>
#include <osg/StateSet>

/// Bindings of the storage buffers that the point programs read.
enum class StorageBuffer : unsigned
{
    SectionPlanes = 5,
    LinePolygon = 6,
    CloudPlanes = 7,
    Gradient = 9,
    MarkColors = 10,
    PointSpacing = 11
};

/// Binds the whole of an array, which gets a storage buffer of its own.
void bindStorageBuffer(osg::StateSet& state, StorageBuffer buffer, osg::Array* array);

void unbindStorageBuffer(osg::StateSet& state, StorageBuffer buffer);

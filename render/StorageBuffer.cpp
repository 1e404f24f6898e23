#include "render/StorageBuffer.h"

#include <osg/BufferIndexBinding>
#include <osg/BufferObject>

void bindStorageBuffer(osg::StateSet& state, StorageBuffer buffer, osg::Array* array)
{
    array->setBufferObject(new osg::ShaderStorageBufferObject);
    array->dirty();
    state.setAttributeAndModes(
        new osg::ShaderStorageBufferBinding(static_cast<unsigned>(buffer), array, 0, 0),
        osg::StateAttribute::ON);
}

void unbindStorageBuffer(osg::StateSet& state, StorageBuffer buffer)
{
    state.removeAttribute(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING, static_cast<unsigned>(buffer));
}

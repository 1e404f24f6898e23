// What scene files hold of point clouds. osgDB finds these wrappers by the names of the objects' classes.
#include "registry/CloudFile.h"
#include "render/PointCloudImpl.h"
#include "render/PointPrograms.h"

#include <VelOsgDBBrx/OctreeInfo.h>
#include <osg/BufferObject>
#include <osg/Notify>
#include <osgDB/FileUtils>
#include <osgDB/InputStream>
#include <osgDB/ObjectWrapper>
#include <osgDB/OutputStream>
#include <osgDB/Serializer>

#include <filesystem>
#include <limits>

namespace {

template <class Class>
void addUserField(osgDB::ObjectWrapper& wrapper, const char* name, bool (*isWritten)(const Class&),
                  bool (*read)(osgDB::InputStream&, Class&),
                  bool (*write)(osgDB::OutputStream&, const Class&))
{
    wrapper.addSerializer(new osgDB::UserSerializer<Class>(name, isWritten, read, write),
                          osgDB::BaseSerializer::RW_USER);
}

/// \name A cloud: a reference to its store, eye-dome lighting and clip planes; its state set has the rest
/// @{
std::string absolute(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::absolute(path, error);
    return error || path.empty() ? path : whole.lexically_normal().string();
}

bool hasStore(const PointCloudImpl& cloud)
{
    return cloud.octree() != nullptr;
}

/// Text files have six digits by default: too few for the coordinates of a survey.
std::ios_base& inFull(std::ios_base& stream)
{
    stream.precision(std::numeric_limits<double>::max_digits10);
    return stream;
}

std::vector<osg::Vec4d> planesOf(const OctreeInfo& octree)
{
    const VelThreads::Lock lock(octree.mutex);
    return octree.planes;
}

/// The store comes before the fields of the node: all numbers behind it, and the numbers of transforms above
/// the cloud, which follow their children, are written in full.
bool writeStore(osgDB::OutputStream& os, const PointCloudImpl& cloud)
{
    os << inFull;
    const OctreeInfo& octree = *cloud.octree();
    const bool hasNormals = octree.normalsFile && octree.normalsFile->isValid();
    os << os.BEGIN_BRACKET << std::endl;
    os << os.PROPERTY("File");
    os.writeWrappedString(absolute(octree.pointPath));
    os << std::endl << os.PROPERTY("Normals");
    os.writeWrappedString(hasNormals ? absolute(octree.normalsPath) : std::string());
    os << std::endl << os.PROPERTY("EyeDomeLighting") << cloud.eyeDomeLighting() << std::endl;
    const std::vector<osg::Vec4d> planes = planesOf(octree);
    os << os.PROPERTY("Planes") << static_cast<unsigned>(planes.size()) << std::endl;
    for (const osg::Vec4d& plane : planes)
        os << plane << std::endl;
    os << os.END_BRACKET << std::endl;
    return true;
}

/// The file where it was, or one of its name next to the scene file; the path as it is where there is
/// neither.
std::string find(const std::string& path, const osgDB::Options* options)
{
    if (path.empty()) return path;
    const std::string found = osgDB::findDataFile(path, options);
    return found.empty() ? path : found;
}

bool readStore(osgDB::InputStream& is, PointCloudImpl& cloud)
{
    std::string path, normals;
    bool eyeDomeLighting = false;
    unsigned planeCount = 0;
    is >> is.BEGIN_BRACKET >> is.PROPERTY("File");
    is.readWrappedString(path);
    is >> is.PROPERTY("Normals");
    is.readWrappedString(normals);
    is >> is.PROPERTY("EyeDomeLighting") >> eyeDomeLighting;
    is >> is.PROPERTY("Planes") >> planeCount;
    std::vector<osg::Vec4d> planes; // grows with what is there: the count may be a damaged one
    for (unsigned i = 0; i < planeCount && !is.getException(); ++i) {
        planes.emplace_back();
        is >> planes.back();
    }
    is >> is.END_BRACKET;
    if (is.getException()) return false;

    VelOsgDBBrx::OpenedCloud opened;
    const VelBrx::Status status =
        fillCloud(cloud, find(path, is.getOptions()), find(normals, is.getOptions()), opened);
    if (!status) {
        is.throwException(status.message());
        return false;
    }
    if (!opened.normals) OSG_WARN << opened.normals.message() << "; shown without normals" << std::endl;
    if (!planes.empty()) cloud.setPlanes(planes);
    if (eyeDomeLighting) cloud.enableEyeDomeLighting();
    return true;
}

osg::Object* makeCloud()
{
    return new PointCloudImpl;
}

const osgDB::RegisterWrapperProxy
    cloudWrapper(makeCloud, "brx::PointCloud", "brx::PointCloud osg::Object osg::Node",
                 [](osgDB::ObjectWrapper* wrapper) {
                     addUserField<PointCloudImpl>(*wrapper, "Store", hasStore, readStore, writeStore);
                 });
/// @}

/// \name A program of the colour modes: its name
/// @{
bool hasName(const NamedProgram& program)
{
    return !program.getName().empty();
}

bool writeName(osgDB::OutputStream& os, const NamedProgram& program)
{
    os.writeWrappedString(program.getName());
    os << std::endl;
    return true;
}

bool readName(osgDB::InputStream& is, NamedProgram& program)
{
    std::string name;
    is.readWrappedString(name);
    if (is.getException() || program.become(name)) return true;
    is.throwException("there is no point program " + name + "; use the version that wrote the file");
    return false;
}

osg::Object* makeProgram()
{
    return new NamedProgram;
}

const osgDB::RegisterWrapperProxy
    programWrapper(makeProgram, "brx::PointProgram", "osg::Object osg::StateAttribute brx::PointProgram",
                   [](osgDB::ObjectWrapper* wrapper) {
                       addUserField<NamedProgram>(*wrapper, "Program", hasName, readName, writeName);
                   });
/// @}

/// OpenSceneGraph 3.6 keeps the binding of a storage buffer and not the buffer.
osg::Object* makeStorageBuffer()
{
    return new osg::ShaderStorageBufferObject;
}

const osgDB::RegisterWrapperProxy storageBufferWrapper(makeStorageBuffer, "osg::ShaderStorageBufferObject",
                                                       "osg::Object osg::BufferObject",
                                                       [](osgDB::ObjectWrapper*) {});

} // namespace

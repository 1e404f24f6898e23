#include "plugin/ContextKeeper.h"

#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/OpenCloud.h>
#include <osg/Notify>
#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>
#include <osgDB/Registry>

/// Opens octree stores. The node shows the points' colours, or their elevation in a store without colours, in
/// file coordinates.
class ReaderWriterBrx : public osgDB::ReaderWriter
{
public:
    ReaderWriterBrx()
    {
        supportsExtension("brx", "Octree store of a point cloud");
        supportsOption("normals=FILE", "Normals of the points; the rest of the options is the file's name");
    }

    const char* className() const override { return "Octree point cloud reader"; }

    using osgDB::ReaderWriter::readNode;
    using osgDB::ReaderWriter::readObject;

    ReadResult readObject(const std::string& fileName, const Options* options) const override
    {
        return readNode(fileName, options);
    }

    ReadResult readNode(const std::string& fileName, const Options* options) const override
    {
        if (!acceptsExtension(osgDB::getLowerCaseFileExtension(fileName)))
            return ReadResult::FILE_NOT_HANDLED;
        const std::string path = osgDB::findDataFile(fileName, options);
        if (path.empty()) return ReadResult::FILE_NOT_FOUND;

        VelOsgDBBrx::OpenOptions how;
        const std::string normals = normalsPath(options);
        if (!normals.empty()) how.normals = normals;
        VelOsgDBBrx::OpenedCloud opened;
        if (const VelBrx::Status status = VelOsgDBBrx::openCloud(path, how, opened); !status)
            return ReadResult(status.message());
        if (!opened.normals && how.normals) return ReadResult(opened.normals.message());
        if (!opened.normals) OSG_WARN << opened.normals.message() << "; shown without normals" << std::endl;
        VelOsgDBBrx::DefaultDisplay::apply(opened.cloud, opened.statistics);
        opened.node->setName(fileName);
        opened.node->addEventCallback(new KeepContext);
        return opened.node.get();
    }

private:
    static std::string normalsPath(const Options* options)
    {
        static const std::string kName = "normals=";
        const std::string text = options ? options->getOptionString() : std::string();
        const size_t position = text.find(kName);
        return position == std::string::npos ? std::string() : text.substr(position + kName.size());
    }
};

REGISTER_OSGPLUGIN(brx, ReaderWriterBrx)

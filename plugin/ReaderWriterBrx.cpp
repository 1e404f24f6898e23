#include "plugin/ContextKeeper.h"

#include <VelBrx/MiraLasRead.h>
#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/LoadBrxTool.h>
#include <osg/MatrixTransform>
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

        osg::Vec3d offset;
        VelBrx::StoreStatistics statistics;
        const osg::ref_ptr<osg::Node> cloud =
            VelOsgDBBrx::LoadBrxTool::loadBrxFileOffset(path, offset, normalsPath(options));
        if (!cloud || !VelBrx::MiraLasRead::getStatistics(statistics, path.c_str())) {
            return ReadResult(path + ": cannot be read as a store; brx verify tells what is wrong with it");
        }
        VelOsgDBBrx::DefaultDisplay::apply(cloud, statistics);
        const osg::ref_ptr<osg::MatrixTransform> place =
            new osg::MatrixTransform(osg::Matrixd::translate(offset));
        place->setName(fileName);
        place->addChild(cloud);
        place->addEventCallback(new KeepContext);
        return place.get();
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

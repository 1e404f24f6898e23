#include "plugin/KeepContext.h"
#include "plugin/PluginOptions.h"
#include "viewer/display/ChangedColors.h"

#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/OpenCloud.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <osg/Notify>
#include <osgDB/FileNameUtils>
#include <osgDB/FileUtils>
#include <osgDB/Registry>

#include <algorithm>
#include <climits>

/// Opens octree stores. The node is in file coordinates; it shows the points' colours, or their elevation
/// in a store without colours, unless options ask for something else.
class ReaderWriterBrx : public osgDB::ReaderWriter
{
public:
    ReaderWriterBrx()
    {
        supportsExtension("brx", "Octree store of a point cloud");
        for (const PluginOption& option : pluginOptions())
            supportsOption(option.name, option.description);
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

        PluginOptions asked;
        if (const VelBrx::Status status = readPluginOptions(options ? options->getOptionString() : "", asked);
            !status)
            return ReadResult(path + ": " + status.message());
        for (const std::string& word : asked.unknown)
            OSG_WARN << path << ": option " << word << " is unknown to this plugin" << std::endl;
        return open(path, fileName, asked);
    }

private:
    static ReadResult open(const std::string& path, const std::string& name, const PluginOptions& asked)
    {
        VelOsgDBBrx::OpenOptions how;
        how.normals = asked.normals;
        VelOsgDBBrx::OpenedCloud opened;
        if (const VelBrx::Status status = VelOsgDBBrx::openCloud(path, how, opened); !status)
            return ReadResult(status.message());
        if (!opened.normals && how.normals) return ReadResult(opened.normals.message());
        if (!opened.normals) OSG_WARN << opened.normals.message() << "; shown without normals" << std::endl;
        display(opened, asked);
        opened.node->setName(name);
        return opened.node.get();
    }

    static void display(const VelOsgDBBrx::OpenedCloud& opened, const PluginOptions& asked)
    {
        VelOsgDBBrx::DefaultDisplay::apply(opened.cloud, opened.statistics);
        if (asked.mode == ColorMode::CHANGED) {
            if (const VelBrx::Status status = ChangedColors().apply({opened.cloud}, ChangedBy::ENTRY);
                !status)
                OSG_WARN << status.message() << std::endl;
        } else if (asked.mode != ColorMode::AUTOMATIC)
            Coloring(opened.statistics, Coloring::defaultSingleColor()).apply(opened.cloud, asked.mode);
        if (asked.pointSize > 0) VelOsgDBBrx::PointCloudHelper::setPointSize(opened.cloud, asked.pointSize);
        applyLight(*opened.cloud, asked.light);
        if (asked.edl) opened.cloud->enableEyeDomeLighting();
        const uint64_t budget = std::min<uint64_t>(asked.budget.value_or(0), UINT_MAX);
        opened.cloud->addEventCallback(new KeepContext(static_cast<unsigned>(budget)));
    }
};

REGISTER_OSGPLUGIN(brx, ReaderWriterBrx)

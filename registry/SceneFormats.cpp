// Keeps osgDB from writing clouds in formats that have no place for them: those leave clouds out without a
// word.
#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/NodeVisitor>
#include <osgDB/Callbacks>
#include <osgDB/FileNameUtils>
#include <osgDB/Registry>

#include <algorithm>
#include <iterator>
#include <string>

using VelOsgDBBrx::IPointCloud;
using WriteResult = osgDB::ReaderWriter::WriteResult;

namespace {

class FindCloud : public osg::NodeVisitor
{
public:
    FindCloud() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    void apply(osg::Group& group) override
    {
        _found = _found || dynamic_cast<IPointCloud*>(&group);
        if (!_found) traverse(group);
    }

    bool found() const { return _found; }

private:
    bool _found = false;
};

template <size_t N>
bool isOneOf(const std::string& text, const char* const (&choices)[N])
{
    return std::find(std::begin(choices), std::end(choices), text) != std::end(choices);
}

/// By the extension; a compressed file has it before the last dot.
bool keepsClouds(std::string fileName)
{
    std::string extension = osgDB::getLowerCaseFileExtension(fileName);
    if (isOneOf(extension, {"gz", "z", "bz2"})) {
        fileName = osgDB::getNameLessExtension(fileName);
        extension = osgDB::getLowerCaseFileExtension(fileName);
    }
    return isOneOf(extension, {"osgt", "osgb", "osgx", "osg2"});
}

class RefuseToLoseClouds : public osgDB::WriteFileCallback
{
public:
    /// `next` writes what is not refused; null: osgDB itself.
    explicit RefuseToLoseClouds(osgDB::WriteFileCallback* next) : _next(next) {}

    osgDB::WriteFileCallback* next() const { return _next; }

    WriteResult writeNode(const osg::Node& node, const std::string& fileName,
                          const osgDB::Options* options) override
    {
        if (losesCloud(node, fileName)) return refusal(fileName);
        return _next ? _next->writeNode(node, fileName, options)
                     : WriteFileCallback::writeNode(node, fileName, options);
    }

    WriteResult writeObject(const osg::Object& object, const std::string& fileName,
                            const osgDB::Options* options) override
    {
        const osg::Node* const node = object.asNode();
        if (node && losesCloud(*node, fileName)) return refusal(fileName);
        return _next ? _next->writeObject(object, fileName, options)
                     : WriteFileCallback::writeObject(object, fileName, options);
    }

protected:
    ~RefuseToLoseClouds() override = default;

private:
    static bool losesCloud(const osg::Node& node, const std::string& fileName)
    {
        if (keepsClouds(fileName)) return false;
        FindCloud clouds;
        const_cast<osg::Node&>(node).accept(clouds);
        return clouds.found();
    }

    static WriteResult refusal(const std::string& fileName)
    {
        return WriteResult(fileName +
                           ": not written: this format cannot keep point clouds; use .osgt, .osgb or "
                           ".osgx");
    }

    const osg::ref_ptr<osgDB::WriteFileCallback> _next;
};

/// In force while the library is loaded.
class Guard
{
public:
    Guard()
    {
        osgDB::Registry& registry = *osgDB::Registry::instance();
        _callback = new RefuseToLoseClouds(registry.getWriteFileCallback());
        registry.setWriteFileCallback(_callback);
    }
    ~Guard()
    {
        osgDB::Registry* const registry = osgDB::Registry::instance(); // null once it is destroyed
        if (registry && registry->getWriteFileCallback() == _callback)
            registry->setWriteFileCallback(_callback->next());
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    osg::ref_ptr<RefuseToLoseClouds> _callback;
};

const Guard guard;

} // namespace

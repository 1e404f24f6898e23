#pragma once

#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/Export.h>

#include <osg/Matrixd>
#include <osg/Object>
#include <osg/Referenced>
#include <osg/Vec2d>
#include <osg/Vec4d>
#include <osg/ref_ptr>

#include <array>
#include <cstdint>
#include <set>
#include <vector>

namespace VelOsgDBBrx {

/// One classification command. A value: copies are independent. Not changed once it is queued.
struct VEL_OSGDB_BRX_EXPORT CategoryCmdInner : public osg::Referenced
{
    /// The library's operation ignores any other kind.
    enum Kind
    {
        EDIT = 0,
        UNDO = 1, ///< takes back the newest edit of the manager that is not taken back yet
        REDO = 2, ///< makes the edit taken back last again, until there is a new one
        RESET = 3 ///< takes back all edits of the manager; each can be redone
    };

    std::vector<osg::Vec2d> polygon; ///< pixels from the top left of the window, y down; closed implicitly
    std::array<osg::Vec2d, 8> block; ///< carried for a host's own operation; the library reads none of it
    std::array<int32_t, 255> classTable = Base::allClasses(); ///< as in `Base`: not zero, may change
    int32_t toClass = 0;                                      ///< the class code to write, 0 to 255
    osg::Matrixd vpw;  ///< view x projection x window: world coordinates to pixels, y up
    int32_t width = 0; ///< of the window, pixels
    int32_t height = 0;
    int32_t kind = EDIT;
};

/// What a category manager hands to its operation: copies, taken when its worker woke.
class VEL_OSGDB_BRX_EXPORT CategoryData : public osg::Object
{
public:
    CategoryData() = default;
    CategoryData(const CategoryData& other) = default;

    osg::Object* cloneType() const override { return new CategoryData; }
    osg::Object* clone(const osg::CopyOp&) const override { return new CategoryData(*this); }
    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "CategoryData"; }

    std::set<osg::ref_ptr<osg::Referenced>> members;
    std::vector<osg::ref_ptr<CategoryCmdInner>> commands; ///< in the order of their arrival
    std::vector<osg::Vec4d> clipPlanes;

protected:
    ~CategoryData() override = default;
};

} // namespace VelOsgDBBrx

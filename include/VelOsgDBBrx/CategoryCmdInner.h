#pragma once

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
    std::vector<osg::Vec2d> polygon;          ///< window coordinates
    std::array<osg::Vec2d, 8> block;          ///< carried for the operation, not read by the manager
    std::array<int32_t, 255> classTable = {}; ///< an entry a class code
    int32_t toClass = 0;                      ///< the class code to write
    osg::Matrixd vpw;                         ///< world to window
    int32_t width = 0;                        ///< of the window, pixels
    int32_t height = 0;
    int32_t kind = 0; ///< 1, 2 and 3 are the manager's own commands
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

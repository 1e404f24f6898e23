#include "viewer/display/Palettes.h"

namespace {

osg::Vec4f opaque(unsigned rgb)
{
    const auto channel = [rgb](unsigned shift) { return static_cast<float>(rgb >> shift & 0xff) / 255.0f; };
    return osg::Vec4f(channel(16), channel(8), channel(0), 1.0f);
}

/// A table with its colours as OSG has them.
struct ShownClasses
{
    explicit ShownClasses(const VelBrx::ClassTable& shown) : table(shown)
    {
        for (unsigned code = 0; code < shown.own().size(); ++code)
            colors.push_back(opaque(shown.color(code)));
    }

    VelBrx::ClassTable table;
    std::vector<osg::Vec4f> colors;
};

ShownClasses& shownClasses()
{
    static ShownClasses shown{VelBrx::ClassTable()};
    return shown;
}

} // namespace

const VelBrx::ClassTable& classTable()
{
    return shownClasses().table;
}

void setClassTable(const VelBrx::ClassTable& table)
{
    shownClasses() = ShownClasses(table);
}

const std::vector<osg::Vec4f>& classColors()
{
    return shownClasses().colors;
}

std::string classText(unsigned code)
{
    return classTable().text(code);
}

osg::Vec4f distinctColor(size_t n)
{
    return opaque(VelBrx::distinctColor(n));
}

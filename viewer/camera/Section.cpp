#include "viewer/camera/Section.h"

#include <osg/Math>

#include <algorithm>
#include <cmath>

double Section::widthFor(double length)
{
    constexpr double kSmallest = 0.01;
    const double wanted = std::max(length / 20, kSmallest);
    const double power = std::pow(10, std::floor(std::log10(wanted)));
    for (const double digit : {5, 2})
        if (wanted >= digit * power) return digit * power;
    return power;
}

osg::Vec2d Section::along() const
{
    osg::Vec2d way = to - from;
    way.normalize();
    return way;
}

osg::Vec2d Section::ahead() const
{
    const osg::Vec2d right = along();
    return osg::Vec2d(-right.y(), right.x());
}

std::vector<osg::Vec4d> Section::planes() const
{
    const osg::Vec2d way = ahead();
    const double middle = way * from;
    return {osg::Vec4d(way.x(), way.y(), 0, width / 2 - middle),
            osg::Vec4d(-way.x(), -way.y(), 0, width / 2 + middle)};
}

std::array<osg::Vec2d, 4> Section::outline() const
{
    const osg::Vec2d aside = ahead() * (width / 2);
    return {from - aside, to - aside, to + aside, from + aside};
}

Section Section::stepped(double widths) const
{
    const osg::Vec2d way = ahead() * (width * widths);
    Section section = *this;
    section.from += way;
    section.to += way;
    return section;
}

Section Section::turned(double degrees) const
{
    const double angle = osg::DegreesToRadians(degrees);
    const osg::Vec2d middle = (from + to) / 2;
    const osg::Vec2d half = (to - from) / 2;
    const osg::Vec2d turnedHalf(half.x() * std::cos(angle) - half.y() * std::sin(angle),
                                half.x() * std::sin(angle) + half.y() * std::cos(angle));
    Section section = *this;
    section.from = middle - turnedHalf;
    section.to = middle + turnedHalf;
    return section;
}

bool Section::operator==(const Section& other) const
{
    return from == other.from && to == other.to && width == other.width && exaggeration == other.exaggeration;
}

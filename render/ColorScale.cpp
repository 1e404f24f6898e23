#include <VelOsgDBBrx/ColorScale.h>

#include <algorithm>

namespace VelOsgDBBrx {

namespace {

constexpr size_t kReservedElements = 256;
constexpr double kSmallestSegment = 1e-8;

} // namespace

ColorScale::ColorScale()
{
    _elements.reserve(kReservedElements);
}

ColorScale::ColorScale(const ColorScale& other) = default;
ColorScale& ColorScale::operator=(const ColorScale& other) = default;
ColorScale::~ColorScale() = default;

bool ColorScale::addColorScaleElement(double value, osg::Vec4f color)
{
    return addColorScaleElement(ColorScaleElement{value, color});
}

bool ColorScale::addColorScaleElement(ColorScaleElement element)
{
    if (_elements.size() > kReservedElements) return false;
    const auto behind = std::upper_bound(
        _elements.begin(), _elements.end(), element,
        [](const ColorScaleElement& a, const ColorScaleElement& b) { return a.value < b.value; });
    _elements.insert(behind, element);
    return true;
}

void ColorScale::removeColorScaleElement(int index)
{
    if (index >= 0 && index < getColorScaleElementCount()) _elements.erase(_elements.begin() + index);
}

void ColorScale::clear()
{
    _elements.clear();
}

int ColorScale::getColorScaleElementCount()
{
    return static_cast<int>(_elements.size());
}

std::vector<ColorScale::ColorScaleElement> ColorScale::getAllColorScaleElements()
{
    return _elements;
}

ColorScale::ColorScaleElement ColorScale::getColorScaleElements(int index)
{
    if (index < 0 || index >= getColorScaleElementCount()) return {0.0, osg::Vec4f(0, 0, 0, 1)};
    return _elements[static_cast<size_t>(index)];
}

bool ColorScale::getAbsoluteBoundaries(double& min, double& max) const
{
    if (_elements.size() < 2) return false;
    min = _elements.front().value;
    max = _elements.back().value;
    return true;
}

osg::Vec4f ColorScale::getColor(double value, osg::Vec4f defaultColor)
{
    for (size_t i = 0; i + 1 < _elements.size(); ++i) {
        const ColorScaleElement& low = _elements[i];
        const ColorScaleElement& high = _elements[i + 1];
        const double width = high.value - low.value;
        if (!(low.value <= value && high.value > value && width > kSmallestSegment)) continue;
        const float t = static_cast<float>((value - low.value) / width);
        const osg::Vec4f color = low.color + (high.color - low.color) * t;
        return osg::Vec4f(color.r(), color.g(), color.b(), 1.0f);
    }
    return defaultColor;
}

} // namespace VelOsgDBBrx

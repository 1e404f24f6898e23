#include "viewer/operation/Operation.h"

#include "terminal/Text.h"

#include <algorithm>
#include <cctype>
#include <cmath>

using VelBrx::Status;

namespace {

std::string quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

/// 1e12, not 1e+12.
std::string plain(double number)
{
    std::string text = shortest(number);
    text.erase(std::remove(text.begin(), text.end(), '+'), text.end());
    return text;
}

template <class Vec>
bool isWithin(const std::vector<Vec>& vectors, double largest)
{
    return std::all_of(vectors.begin(), vectors.end(), [largest](const Vec& vector) {
        bool within = true;
        for (int i = 0; i < Vec::num_components; ++i)
            within = within && std::abs(vector[i]) <= largest;
        return within;
    });
}

} // namespace

std::string Parameter::worldName() const
{
    std::string capital = name;
    capital[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(capital[0])));
    return "world" + capital;
}

std::string Parameter::vectorText(int count, double largest)
{
    return std::to_string(count) + " numbers, none beyond " + plain(largest);
}

std::string Parameter::expectation() const
{
    switch (type) {
    case FLAG:
        return "true or false";
    case WHOLE:
        return "a whole number from " + plain(low) + " to " + plain(high);
    case NUMBER:
        return "a number above " + plain(low) + ", up to " + plain(high);
    case TEXT:
        return "a text";
    case CHOICE: {
        std::string names;
        for (const std::string& choice : choices)
            names += (names.empty() ? "" : ", ") + quoted(choice);
        return "one of " + names;
    }
    case PLACE:
        return vectorText(2, high);
    case POSITION:
        return vectorText(3, high);
    case POSITIONS:
        return "a list of at least " + plain(low) + " positions, 3 numbers each";
    case CLASSES:
        return "a list of classes from " + plain(low) + " to " + plain(high);
    case POLYGON:
    case LINE:
        return "a list of at least " + plain(low) + " vertices";
    case PLANES:
        return "a list of planes, 4 numbers each";
    case POINTS:
        return "a selection, as [selections](selections.md) has it";
    case RANGE:
        return "2 numbers, the smaller first, null for an open end";
    }
    return "";
}

bool Parameter::takes(const Value& value) const
{
    switch (type) {
    case FLAG:
        return std::holds_alternative<bool>(value);
    case WHOLE: {
        const int* const number = std::get_if<int>(&value);
        return number && *number >= low && *number <= high;
    }
    case NUMBER: {
        const double* const number = std::get_if<double>(&value);
        return number && *number > low && *number <= high;
    }
    case TEXT: {
        const std::string* const text = std::get_if<std::string>(&value);
        return text && !text->empty();
    }
    case CHOICE: {
        const std::string* const text = std::get_if<std::string>(&value);
        return text && std::find(choices.begin(), choices.end(), *text) != choices.end();
    }
    case PLACE: {
        const osg::Vec2d* const place = std::get_if<osg::Vec2d>(&value);
        return place && isWithin(std::vector{*place}, high);
    }
    case POSITION: {
        const osg::Vec3d* const position = std::get_if<osg::Vec3d>(&value);
        return position && isWithin(std::vector{*position}, high);
    }
    case POSITIONS: {
        const auto* const positions = std::get_if<std::vector<osg::Vec3d>>(&value);
        return positions && static_cast<double>(positions->size()) >= low && isWithin(*positions, high);
    }
    case CLASSES: {
        const ClassSet* const classes = std::get_if<ClassSet>(&value);
        if (!classes) return false;
        if (classes->none()) return canBeEmpty;
        const std::vector<int> listed = listClasses(*classes);
        return listed.front() >= low && listed.back() <= high;
    }
    case POLYGON:
    case LINE: {
        const Outline* const outline = std::get_if<Outline>(&value);
        return outline && static_cast<double>(outline->pixels.size() + outline->world.size()) >= low &&
               isWithin(outline->pixels, high) && isWithin(outline->world, high);
    }
    case PLANES: {
        const auto* const planes = std::get_if<std::vector<osg::Vec4d>>(&value);
        return planes && !planes->empty() && isWithin(*planes, high);
    }
    case POINTS: {
        const auto* const selection = std::get_if<VelOsgDBBrx::PointSelection>(&value);
        return selection && VelOsgDBBrx::checkSelection(*selection);
    }
    case RANGE: {
        const auto* const range = std::get_if<VelOsgDBBrx::ValueRange>(&value);
        return range && range->low <= range->high;
    }
    }
    return false;
}

const Parameter* Operation::outline() const
{
    const auto found = std::find_if(parameters.begin(), parameters.end(),
                                    [](const Parameter& parameter) { return parameter.isOutline(); });
    return found == parameters.end() ? nullptr : &*found;
}

const Parameter* Operation::find(const std::string& parameter) const
{
    const auto found = std::find_if(parameters.begin(), parameters.end(),
                                    [&](const Parameter& known) { return known.name == parameter; });
    return found == parameters.end() ? nullptr : &*found;
}

const Value* Request::find(const std::string& name) const
{
    const auto given = _values.find(name);
    if (given != _values.end()) return &given->second;
    const Parameter* const parameter = _operation->find(name);
    return parameter && parameter->otherwise ? &*parameter->otherwise : nullptr;
}

bool Request::wants(const Parameter& parameter) const
{
    if (!parameter.condition) return true;
    const Value* const value = find(parameter.condition->parameter);
    if (!parameter.condition->value) return !value;
    return value && std::get<std::string>(*value) == *parameter.condition->value;
}

Status Request::check() const
{
    for (const Parameter& parameter : _operation->parameters) {
        if (!wants(parameter)) continue;
        const auto given = _values.find(parameter.name);
        if (given == _values.end()) {
            if (parameter.required) return Status::failure(quoted(parameter.name) + " is missing");
        } else if (!parameter.takes(given->second)) {
            return Status::failure(quoted(parameter.name) + ": expected " + parameter.expectation());
        }
    }
    return _operation->check ? _operation->check(*this) : Status();
}

Begun carryOut(const Request& request, const Stage& stage)
{
    if (const Status sound = request.check(); !sound)
        return {Begun::REFUSED, std::string(request.operation().name) + ": " + sound.message()};
    return request.operation().carryOut(request, stage);
}

#pragma once

#include <nlohmann/json.hpp>

#include <utility>

/// Deeper than anything of ours is nested. What is nested as deep as an enemy likes exhausts the stack of who
/// copies or prints it.
constexpr int kDeepestJson = 64;

/// The value that a text or stream of JSON holds; discarded where it is none or nested too deep.
template <class Json, class Input>
Json parseShallow(Input&& input)
{
    bool isTooDeep = false;
    const auto watch = [&](int depth, typename Json::parse_event_t, Json&) {
        isTooDeep = isTooDeep || depth > kDeepestJson;
        return !isTooDeep;
    };
    Json parsed = Json::parse(std::forward<Input>(input), watch, false);
    return isTooDeep ? Json(Json::value_t::discarded) : parsed;
}

#include "common/JsonObject.h"

#include <vector>

namespace Apps {
namespace {

// Deep values are copied and destroyed by recursion; ours are a few levels deep.
constexpr int maxDepth = 32;

bool isTooDeep(const Quil::String& text) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString && c == '\\') ++i;
        if (c == '"') inString = !inString;
        if (inString) continue;
        if (c == '[' || c == '{') ++depth;
        if (c == ']' || c == '}') --depth;
        if (depth > maxDepth) return true;
    }
    return false;
}

}  // namespace

Json parseJson(const Quil::String& text) {
    if (isTooDeep(text)) throw Quil::RangeException(Quil::cat("is nested deeper than ", maxDepth, " levels"));
    std::vector<std::set<Quil::String>> open;  // the keys of the objects around
    const auto refuseTwice = [&](int, Json::parse_event_t event, Json& value) {
        if (event == Json::parse_event_t::object_start) open.emplace_back();
        if (event == Json::parse_event_t::object_end) open.pop_back();
        if (event == Json::parse_event_t::key && !open.back().insert(value.get<Quil::String>()).second) {
            throw Quil::RangeException("is given twice", value.get<Quil::String>());
        }
        return true;
    };
    try {
        return Json::parse(text, refuseTwice);
    } catch (const Json::parse_error& error) {
        throw Quil::RangeException(Quil::cat("is not JSON from byte ", error.byte, " on"));
    } catch (const Json::exception&) {
        throw Quil::RangeException("is not JSON that can be held");
    }
}

}  // namespace Apps

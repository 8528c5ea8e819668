// JsonObject.h: reading a JSON object key by key: whatever is wrong is a range error that names the place, as in
// "hosts[3].vlan: VlanId::value < 1 or > 4094 not allowed".
#pragma once

#include <nlohmann/json.hpp>
#include <set>

#include "Quil/FieldList.h"

namespace Apps {

using Json = nlohmann::ordered_json;

// The text as JSON. The range exception for what is none, or nested deeper than anything that we read.
Json parseJson(const Quil::String& text);

// Runs the reading of the value under this key.
template <class F>
void atKey(const Quil::String& key, F&& read) {
    try {
        Quil::atField(key.c_str(), read);
    } catch (const Json::exception&) {
        throw Quil::RangeException("is of the wrong type", key);
    }
}

inline std::uint64_t bounded(const Json& value, std::uint64_t max) {
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > max) {
        throw Quil::RangeException(Quil::cat("is not a number from 0 to ", max));
    }
    return value.get<std::uint64_t>();
}

class JsonObject {
 public:
    explicit JsonObject(const Json& json) : json_(json) {
        if (!json.is_object()) throw Quil::RangeException("is not an object");
    }
    bool has(const char* key) const { return json_.contains(key); }
    // Calls read(value) when the key is there.
    template <class F>
    void read(const char* key, F&& read) {
        known_.insert(key);
        const auto found = json_.find(key);
        if (found != json_.end()) atKey(key, [&] { read(*found); });
    }
    template <class F>
    void require(const char* key, F&& read) {
        if (!has(key)) throw Quil::RangeException("is missing", key);
        this->read(key, read);
    }
    // Calls read(element) for each element of the array under the key.
    template <class F>
    void readEach(const char* key, F&& read) {
        known_.insert(key);
        const auto found = json_.find(key);
        if (found == json_.end()) return;
        if (!found->is_array()) throw Quil::RangeException("is not an array", key);
        for (std::size_t i = 0; i < found->size(); ++i) atKey(Quil::cat(key, "[", i, "]"), [&] { read((*found)[i]); });
    }
    Quil::String text(const char* key) {
        Quil::String text;
        require(key, [&](const Json& value) { text = value.get<Quil::String>(); });
        return text;
    }
    // Refuses keys that nobody has asked for.
    void end() const {
        for (const auto& [key, unused] : json_.items()) {
            if (!known_.contains(key)) throw Quil::RangeException("is not known here", key);
        }
    }

 private:
    const Json& json_;
    std::set<Quil::String> known_;
};

}  // namespace Apps

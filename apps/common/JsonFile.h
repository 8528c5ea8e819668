// JsonFile.h: files that hold one JSON value.
#pragma once

#include "common/JsonObject.h"

namespace Apps {

// What is wrong is a range exception, without the file's name.
Json readJson(const Quil::String& path);

// take(json) of the file; whatever is wrong, there or in take, is a range exception that names the file.
template <class F>
auto readJson(const Quil::String& path, F&& take) {
    try {
        return take(readJson(path));
    } catch (const Quil::RangeException& error) {
        throw Quil::RangeException(error.what(), path);
    }
}

// As a whole, or not at all. Raises SystemException.
void writeJson(const Quil::String& path, const Json& json);

}  // namespace Apps

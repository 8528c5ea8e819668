// Hash.h: hashing of values in the standard library's containers, by their own hash().
#pragma once

#include <cstddef>

namespace L2Rib {

template <class T>
struct HashOf {
    std::size_t operator()(const T& value) const { return value.hash(); }
};

}  // namespace L2Rib

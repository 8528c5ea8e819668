// Assert.h: a broken invariant stops the process with the violated condition, where it stands and in which function.
// The texts are part of the interface, so they are given as data and not made from the expression.
#pragma once

#include "Quil/Export.h"

namespace Quil {

// Writes "<file>: <function>: Assertion `<text>' failed." to stderr and aborts.
[[noreturn]] L2RIB_EXPORT void assertFail(const char* text, const char* file, const char* function);

inline void assertThat(bool condition, const char* text, const char* file, const char* function) {
    if (!condition) [[unlikely]]
        assertFail(text, file, function);
}

}  // namespace Quil

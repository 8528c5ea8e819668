#include "Quil/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Quil {

void assertFail(const char* text, const char* file, const char* function) {
    std::fprintf(stderr, "%s: %s: Assertion `%s' failed.\n", file, function, text);
    std::abort();
}

}  // namespace Quil

// Export.h: marks what the shared library offers to its users; everything else stays hidden.
#pragma once

#define L2RIB_EXPORT __attribute__((visibility("default")))

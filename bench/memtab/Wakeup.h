// Wakeup.h: how long a change takes to its reader, which sleeps, or is busy with a burst. Microseconds.
#pragma once

#include "Measure.h"
#include "Records.h"

namespace bench {

struct Latencies {
    Figures median = noFigures, rare = noFigures;  // rare: 99 of 100 are shorter
};
// From the write of one record to the reader's call for its key, in a process that sleeps. The limit is a byte through
// a pair of sockets.
Latencies wakeUps(const std::string& path, std::uint32_t hosts);

// From the first of 100 000 changes until the reader, told of each changed key, has read its last state. A reader of
// the bare table looks at its queue again and again.
Figures burst(const std::string& path, const std::vector<Entry>& entries);

}  // namespace bench

// KickProtocol.h: the messages on a table's kick socket ("kick" in its directory, AF_UNIX, SOCK_SEQPACKET; one message
// is one packet; numbers in the machine's order, since both ends are on one machine).
//
//   reader -> writer   KickHello, once; then KickAck, whenever it has consumed notifications or falls asleep
//   writer -> reader   KickWelcome, once; then KickWake, when something changed and the reader sleeps
//   tool   -> writer   KickQuery instead of a hello: it is no reader
//   writer -> tool     KickReader for every reader, then KickEnd
#pragma once

#include <cstdint>

namespace Mem {

constexpr std::uint32_t kickVersion = 1;

enum KickType : std::uint32_t {
    kickHello = 1,
    kickWelcome = 2,
    kickAck = 3,
    kickWake = 4,
    kickQuery = 5,
    kickReader = 6,
    kickEnd = 7
};

struct KickHello {
    std::uint32_t type = kickHello;
    std::uint32_t version = kickVersion;
    std::uint32_t fenix = 0;  // the incarnation the reader found in the fenix file
    char name[52] = {};       // of the reader, NUL-terminated
};
struct KickWelcome {
    std::uint32_t type = kickWelcome;
    std::uint32_t version = kickVersion;
    std::uint32_t fenix = 0;  // the writer's incarnation
    std::uint32_t kicks = 1;  // 0: it wakes nobody; look at intervals
};
struct KickAck {
    std::uint32_t type = kickAck;
    std::uint32_t sleeping = 0;     // 1: wake me at the next change
    std::uint64_t sequence = 0;     // consumed up to here
    std::uint32_t slotCounter = 0;  // change counters of the count words that the reader's mappings match
    std::uint32_t bucketCounter = 0;
};
struct KickWake {
    std::uint32_t type = kickWake;
};
struct KickQuery {
    std::uint32_t type = kickQuery;
    std::uint32_t version = kickVersion;
};
struct KickReader {
    std::uint32_t type = kickReader;
    std::uint32_t pid = 0;
    std::uint64_t sequence = 0;  // acknowledged
    std::uint32_t age = 0;       // seconds since it connected
    std::uint32_t sleeping = 0;
    char name[56] = {};
};
struct KickEnd {
    std::uint32_t type = kickEnd;
    std::uint32_t readers = 0;   // there are; fewer may have been told of when the connection was slow
    std::uint64_t sequence = 0;  // of the last change
};
static_assert(sizeof(KickQuery) == 8 && sizeof(KickReader) == 80 && sizeof(KickEnd) == 16);
static_assert(sizeof(KickHello) == 64 && sizeof(KickWelcome) == 16 && sizeof(KickAck) == 24 && sizeof(KickWake) == 4);

}  // namespace Mem

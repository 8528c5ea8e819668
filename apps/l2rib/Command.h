// Command.h: what the commands of l2rib share: options, the mounted table, errors, exit statuses.
#pragma once

#include <string>
#include <vector>

#include "Corestore/EntityManager.h"
#include "L2Rib/HostOutput.h"
#include "L2Rib/TableInfo.h"

namespace Tool {

constexpr int exitFound = 0;
constexpr int exitNoMatch = 1;
constexpr int exitError = 2;  // usage, input, output

struct Options {
    std::string root = "/dev/shm/l2rib";
    bool json = false;
    bool current = false;            // monitor: begin with what is there
    bool details = false;            // lb, label, dest: the hosts that use each
    std::vector<std::string> words;  // after object and verb: selectors and their values
};

// The output host table, mounted for reading.
struct HostTable {
    Quil::EventLoop loop;
    Corestore::EntityManager em;
    Quil::Ptr<L2Rib::HostOutput> hosts = L2Rib::hostOutputFactory("host");

    explicit HostTable(const std::string& root) : em(loop, root, "l2rib") {}
    // Raises SystemException when there is no table.
    void mountReadable();
    void mount() { em.mount("l2rib/output", hosts, L2Rib::TableInfo().hostOutputInfo(QuilMemtab::reader)); }
};

// Raises the range exception when words are left for a command that takes none.
void requireNoWords(const Options& options);

// What was printed must have arrived: raises SystemException otherwise.
void flushOutput();

int hostShow(const Options& options);
int hostMonitor(const Options& options);
int hostExplain(const Options& options);
int hostClear(const Options& options);
int lbShow(const Options& options);
int labelShow(const Options& options);
int destShow(const Options& options);
int tableCheck(const Options& options);
int tableShow(const Options& options);
int tableDump(const Options& options);
int readerShow(const Options& options);
int sourceShow(const Options& options);
int floodShow(const Options& options);
int statusShow(const Options& options);
int configSet(const Options& options);

}  // namespace Tool

// Producer.h: what feeds sources: the kernel's forwarding tables, or a file. A producer runs in a process of its own
// (l2rib-source) or in that of the agent; the agent learns of its sources in the same way.
//
// Threads   Event-loop thread.
// Errors    What cannot be had or read at the start is an exception; later it is said and tried again.
#pragma once

#include <functional>
#include <memory>
#include <set>

#include "Corestore/EntityManager.h"
#include "Quil/FileDescriptor.h"
#include "fdb/FdbModel.h"

namespace CLI {
class App;
}

namespace Producer {

struct Options {
    std::string name;  // of the producer; empty: "kernel", or that of the file
    std::uint32_t maxHosts = 16384;
    std::vector<std::string> vlans;       // "br0=10"
    std::vector<std::string> vxlans;      // device names
    std::vector<std::string> owns;        // MAC addresses
    std::vector<std::string> programmed;  // device names

    void addTo(CLI::App& app);
    Fdb::Settings settings() const;  // raises the range exception
};

// Held by a producer for as long as it lives: a second one of its name fails.
class NameLock {
 public:
    NameLock(const Quil::String& root, const Quil::Name& name);  // raises SystemException

 private:
    Quil::FileDescriptor file_;
};

using Report = std::function<void(const Quil::String&)>;

class Producer {
 public:
    virtual ~Producer();
    // It ends for good: what its sources said is dropped at once.
    virtual void withdraw() = 0;
    virtual Quil::String summary() const = 0;  // what it did not publish
};

// Both return when the first fill is done.
std::unique_ptr<Producer> kernelProducer(Corestore::EntityManager& em, const Options& options);
std::unique_ptr<Producer> fileProducer(Corestore::EntityManager& em, const Options& options, const std::string& path,
                                       Report report);

Quil::String summaryOf(const Fdb::Statistics& statistics);

}  // namespace Producer

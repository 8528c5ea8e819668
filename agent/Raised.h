// Raised: the sequence numbers that local hosts took when they came home, where the next agent finds them: a table of
// its own beside the output, which carries them only while they win.
//
// Of two local sources that have both raised the number of one host, the later one's is kept.
//
// Threads   Event-loop thread.
// Errors    What the table throws.
#pragma once

#include <optional>

#include "L2Rib/HostOutput.h"

namespace Agent {

class Raised {
 public:
    using Key = Bridging::MacVlanPair;

    explicit Raised(Quil::Ptr<L2Rib::HostOutput> table) : table_(std::move(table)) {}

    // The source's host as it was when it took the number that it bears; none when none is kept.
    std::optional<L2Rib::Host> of(L2Rib::Source source, const Key& key) const {
        L2Rib::HostAndSource row;
        const bool isKept = table_->host(key, row) && row.source() == source;
        return isKept ? std::optional(row.host()) : std::nullopt;
    }
    void is(L2Rib::Source source, const L2Rib::Host& host) {
        L2Rib::HostAndSource row(host.key());
        row.hostIs(host);
        row.sourceIs(source);
        table_->hostIs(row);
    }
    void del(L2Rib::Source source, const Key& key) {
        if (of(source, key)) table_->hostDel(key);
    }

    // A walk through all that are kept, in steps: calls visit(source, key), which may delete it. It stays while that
    // throws.
    void walk() { walk_ = table_->hosts().begin(); }
    bool isWalking() const { return bool(walk_); }
    template <class F>
    void step(F&& visit) {
        const Key key = walk_.key();
        visit(walk_->source(), key);
        ++walk_;
    }

 private:
    const Quil::Ptr<L2Rib::HostOutput> table_;
    L2Rib::HostOutput::IteratorConst walk_;
};

}  // namespace Agent

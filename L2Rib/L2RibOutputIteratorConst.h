// L2RibOutputIteratorConst.h: a cursor over the output host table that rests only on hosts of one VLAN, or on those
// that one of some sources won, or both.
//
//   for (const auto& host : L2Rib::hostsOf(output, L2Rib::sourceBgp, Bridging::VlanId(10))) ...
//
// Order     The table's. The table may change meanwhile: see Memtab/MemtabReader.h for what a walk promises.
// Threads   Event-loop thread of the consumer.
// Errors    Damage of the table goes to its corruption hook, never to the caller: a host whose record cannot be read
// counts
//           as one without a source; where the walk cannot go on, it ends.
#pragma once

#include <iterator>

#include "L2Rib/HostOutput.h"

namespace L2Rib {

class L2RIB_EXPORT L2RibOutputIteratorConst {
 public:
    using iterator_category = std::input_iterator_tag;
    using value_type = HostAndSource;
    using difference_type = std::ptrdiff_t;
    using pointer = const HostAndSource*;
    using reference = const HostAndSource&;

    L2RibOutputIteratorConst() = default;  // the end
    // On the first host that passes. sourceFilter: a mask of sources, 0 for all. vlanFilter: VLAN 0, the default, for
    // all.
    L2RibOutputIteratorConst(Quil::Ptr<const HostOutput> table, std::uint32_t sourceFilter,
                             Bridging::VlanId vlanFilter = {});
    // The same, from this key on; when it is gone, from the one that follows it.
    L2RibOutputIteratorConst(Quil::Ptr<const HostOutput> table, std::uint32_t sourceFilter, Bridging::VlanId vlanFilter,
                             const Bridging::MacVlanPair& from);

    bool valid() const { return valid_; }
    bool done() const { return done_; }
    explicit operator bool() const { return valid_; }
    const Bridging::MacVlanPair& key() const { return key_; }
    // The host, as it was when the cursor came here. Requires valid().
    const HostAndSource& operator*() const { return entry_.value(); }
    const HostAndSource* operator->() const { return &entry_.value(); }
    L2RibOutputIteratorConst& operator++();
    void operator++(int) { ++*this; }
    friend bool operator==(const L2RibOutputIteratorConst& a, const L2RibOutputIteratorConst& b) {
        return a.valid_ == b.valid_ && (!a.valid_ || a.key_ == b.key_);
    }

    // From the current key on, the key included: goes on until a host passes the filters, or the table ends. Without a
    // filter no host passes: the plain walk serves that case.
    void updateToNextHostIterator();

 private:
    using Map = HostOutput::Map;
    bool isFiltered() const { return sourceFilter_ != 0 || vlanFilter_ != Bridging::VlanId(); }
    void arrive();  // after a step of the table's own walk
    bool sourceMatches();

    Quil::Ptr<const HostOutput> table_;
    std::uint32_t sourceFilter_ = 0;
    Bridging::VlanId vlanFilter_;
    Map::IterHint hint_;
    HostOutput::Wrapper entry_;
    Bridging::MacVlanPair key_;
    bool valid_ = false;
    bool done_ = false;
};

// What a range-for walks.
struct L2RibOutputRange {
    Quil::Ptr<const HostOutput> table;
    std::uint32_t sourceFilter;
    Bridging::VlanId vlanFilter;
    L2RibOutputIteratorConst begin() const { return {table, sourceFilter, vlanFilter}; }
    L2RibOutputIteratorConst end() const { return {}; }
};
inline L2RibOutputRange hostsOf(Quil::Ptr<const HostOutput> table, std::uint32_t sourceFilter,
                                Bridging::VlanId vlanFilter = {}) {
    return {std::move(table), sourceFilter, vlanFilter};
}

}  // namespace L2Rib

#include "L2Rib/L2RibOutputIteratorConst.h"

#include "Quil/Trace.h"

namespace L2Rib {
namespace {

constexpr int detailLevel = 8;

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("L2Rib::L2RibOutputIteratorConst");
    return handle;
}

}  // namespace

L2RibOutputIteratorConst::L2RibOutputIteratorConst(Quil::Ptr<const HostOutput> table, std::uint32_t sourceFilter,
                                                   Bridging::VlanId vlanFilter)
    : table_(std::move(table)), sourceFilter_(sourceFilter), vlanFilter_(vlanFilter) {
    valid_ = table_ && table_->hostControl().first(entry_, hint_);
    arrive();
}

L2RibOutputIteratorConst::L2RibOutputIteratorConst(Quil::Ptr<const HostOutput> table, std::uint32_t sourceFilter,
                                                   Bridging::VlanId vlanFilter, const Bridging::MacVlanPair& from)
    : table_(std::move(table)), sourceFilter_(sourceFilter), vlanFilter_(vlanFilter) {
    valid_ = table_ && (table_->hostControl().lookup(from, entry_) || table_->hostControl().next(from, entry_, hint_));
    arrive();
}

L2RibOutputIteratorConst& L2RibOutputIteratorConst::operator++() {
    if (!valid_) return *this;
    valid_ = table_->hostControl().next(key_, entry_, hint_);
    arrive();
    return *this;
}

void L2RibOutputIteratorConst::arrive() {
    if (valid_) key_ = entry_.fwkKey();
    if (isFiltered()) {
        updateToNextHostIterator();
    } else {
        done_ = !valid_;
    }
}

// Whether one of the wanted sources won the host, by what the table says now.
bool L2RibOutputIteratorConst::sourceMatches() {
    HostOutput::Wrapper now;
    if (!table_->hostControl().lookup(key_, now)) return false;
    if ((now.value().source() & sourceFilter_) == 0) return false;
    entry_ = now;
    return true;
}

void L2RibOutputIteratorConst::updateToNextHostIterator() {
    while (valid_) {
        trace().log(detailLevel, [&] { return Quil::cat("Host Key= ", key_); });
        const bool vlanMatches = vlanFilter_ == Bridging::VlanId() || key_.vlanId() == vlanFilter_;
        if (vlanMatches && vlanFilter_ != Bridging::VlanId()) {
            trace().log(detailLevel, [] { return Quil::String("   Vlan filter matched"); });
            if (sourceFilter_ == 0) return;
        }
        if (vlanMatches && sourceMatches()) {
            trace().log(detailLevel, [] { return Quil::String("   Source filter matched"); });
            return;
        }
        valid_ = table_->hostControl().next(key_, entry_, hint_);
        if (valid_) key_ = entry_.fwkKey();
    }
    done_ = true;
    trace().log(detailLevel, [] { return Quil::String("  Done"); });
}

}  // namespace L2Rib

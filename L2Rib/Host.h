// Host.h: a host as one source knows it: a MAC address in a VLAN and where it is reached.
//
// It resolves through next (an object tuple), or, when next is the empty tuple, directly through ciDest. 100 bytes.
#pragma once

#include "Bridging/EntryType.h"
#include "Bridging/MacVlanPair.h"
#include "Keel/Seqno32.h"
#include "L2Rib/CiDest.h"
#include "L2Rib/ObjTuple.h"

namespace L2Rib {

class L2RIB_EXPORT Host : public Quil::Value<Host> {
 public:
    Host() = default;
    explicit Host(const Bridging::MacVlanPair& key) : key_(key) {}
    // Parses the fields up to ciDest, then stops the process: a collection has no text to read.
    explicit Host(const Quil::String& text) { Quil::parseValue(text, *this); }

    const Bridging::MacVlanPair& key() const { return key_; }
    Keel::Seqno32 seqNo() const { return seqNo_; }
    std::uint32_t preference() const { return preference_; }  // 0: the source's default
    double lastMoveTime() const { return lastMoveTime_; }     // seconds, CLOCK_BOOTTIME
    Bridging::EntryType entryType() const { return entryType_; }
    const ObjTuple& next() const { return next_; }
    const CiDest& ciDest() const { return ciDest_; }

    void keyIs(const Bridging::MacVlanPair& key) { key_ = key; }
    void seqNoIs(Keel::Seqno32 seqNo) { seqNo_ = seqNo; }
    void preferenceIs(std::uint32_t preference) { preference_ = preference; }
    void lastMoveTimeIs(double lastMoveTime) { lastMoveTime_ = lastMoveTime; }
    void entryTypeIs(Bridging::EntryType entryType) { entryType_ = entryType; }
    void nextIs(const ObjTuple& next) { next_ = next; }
    void ciDestIs(const CiDest& ciDest) { ciDest_ = ciDest; }

    Quil::String stringValue() const;
    Quil::String str() const { return Quil::cat("(", stringValue(), ")"); }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::Host", Quil::field("key", &Host::key_), Quil::field("seqNo", &Host::seqNo_),
                               Quil::field("preference", &Host::preference_),
                               Quil::field("lastMoveTime", &Host::lastMoveTime_),
                               Quil::field("entryType", &Host::entryType_), Quil::field("next", &Host::next_),
                               Quil::field("ciDest", &Host::ciDest_));
    }

 private:
    Bridging::MacVlanPair key_;
    Keel::Seqno32 seqNo_;
    std::uint32_t preference_ = 0;
    Quil::Flat<double> lastMoveTime_;
    Bridging::EntryType entryType_ = Bridging::entryTypeDynamic;
    ObjTuple next_;
    CiDest ciDest_;  // compared last: comparing two that are neither interface nor VXLAN stops the process
};
static_assert(sizeof(Host) == 100 && alignof(Host) == 4);

}  // namespace L2Rib

// LoadBalance.h: a load-balance group of up to 16 members. 204 bytes.
#pragma once

#include "L2Rib/EcmpIndex.h"
#include "L2Rib/ObjTuple.h"
#include "Quilo/PodArray.h"

namespace L2Rib {

class L2RIB_EXPORT LoadBalance : public Quil::Value<LoadBalance> {
 public:
    using MemberArray = Quilo::PodArray<ObjTuple, EcmpIndex, 16u>;

    LoadBalance() = default;
    explicit LoadBalance(LoadBalanceId key) : key_(key) {}
    // There is no text to read a collection from: stops the process.
    [[noreturn]] explicit LoadBalance(const Quil::String& text);

    LoadBalanceId key() const { return key_; }
    const MemberArray& next() const { return next_; }
    ObjTuple next(EcmpIndex index) const { return next_[index]; }
    void keyIs(LoadBalanceId key) { key_ = key; }
    void nextIs(EcmpIndex index, const ObjTuple& tuple) { next_.memberIs(index.value(), tuple); }
    void nextIs(std::uint32_t count, const ObjTuple* tuples) { next_.set(count, tuples); }
    ObjTuple nextDel(EcmpIndex index) { return next_._memberDel(index.value()); }
    void nextDelAll() { next_.memberDelAll(); }

    Quil::String stringValue() const;
    Quil::String str() const { return Quil::cat("(", stringValue(), ")"); }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::LoadBalance", Quil::field("key", &LoadBalance::key_),
                               Quil::field("next", &LoadBalance::next_));
    }
    [[noreturn]] void fwkParseStrep(Quil::StrepCursor& cursor);

 private:
    LoadBalanceId key_;
    MemberArray next_;
};
static_assert(sizeof(LoadBalance) == 204 && alignof(LoadBalance) == 4);

}  // namespace L2Rib

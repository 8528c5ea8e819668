// LoadBalanceAndSource.h: an output group: the group and the source's own tuple for it. 228 bytes.
#pragma once

#include "L2Rib/LoadBalance.h"
#include "L2Rib/ObjTupleAndSource.h"

namespace L2Rib {

class LoadBalanceAndSource : public Quil::Value<LoadBalanceAndSource> {
 public:
    LoadBalanceAndSource() = default;
    explicit LoadBalanceAndSource(LoadBalanceId key) : key_(key) {}
    explicit LoadBalanceAndSource(const Quil::String& text) {
        Quil::parseValue(text, *this);
    }  // stops the process at lb

    LoadBalanceId key() const { return key_; }
    const LoadBalance& lb() const { return lb_; }
    const ObjTupleAndSource& sourceOtas() const { return sourceOtas_; }
    void keyIs(LoadBalanceId key) { key_ = key; }
    void lbIs(const LoadBalance& lb) { lb_ = lb; }
    void sourceOtasIs(const ObjTupleAndSource& sourceOtas) { sourceOtas_ = sourceOtas; }
    void nextDelAll() { lb_.nextDelAll(); }  // of the group

    Quil::String str() const { return Quil::cat("(", lb_.stringValue(), " source: ", sourceOtas_, ")"); }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::LoadBalanceAndSource", Quil::field("key", &LoadBalanceAndSource::key_),
                               Quil::field("lb", &LoadBalanceAndSource::lb_),
                               Quil::field("sourceOtas", &LoadBalanceAndSource::sourceOtas_));
    }

 private:
    LoadBalanceId key_;
    LoadBalance lb_;
    ObjTupleAndSource sourceOtas_;
};
static_assert(sizeof(LoadBalanceAndSource) == 228 && alignof(LoadBalanceAndSource) == 4);

}  // namespace L2Rib

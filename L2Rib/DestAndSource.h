// DestAndSource.h: an output destination: the destination and the source's own tuple for it. 48 bytes.
#pragma once

#include "L2Rib/Dest.h"
#include "L2Rib/ObjTupleAndSource.h"

namespace L2Rib {

class DestAndSource : public Quil::Value<DestAndSource> {
 public:
    DestAndSource() = default;
    explicit DestAndSource(DestId key) : key_(key) {}
    explicit DestAndSource(const Quil::String& text) { Quil::parseValue(text, *this); }

    DestId key() const { return key_; }
    const Dest& dest() const { return dest_; }
    const ObjTupleAndSource& sourceOtas() const { return sourceOtas_; }
    void keyIs(DestId key) { key_ = key; }
    void destIs(const Dest& dest) { dest_ = dest; }
    void sourceOtasIs(const ObjTupleAndSource& sourceOtas) { sourceOtas_ = sourceOtas; }

    Quil::String str() const { return Quil::cat("(", dest_.stringValue(), " source: ", sourceOtas_, ")"); }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::DestAndSource", Quil::field("key", &DestAndSource::key_),
                               Quil::field("dest", &DestAndSource::dest_),
                               Quil::field("sourceOtas", &DestAndSource::sourceOtas_));
    }

 private:
    DestId key_;
    Dest dest_;
    ObjTupleAndSource sourceOtas_;
};
static_assert(sizeof(DestAndSource) == 48 && alignof(DestAndSource) == 4);

}  // namespace L2Rib

// ObjTupleAndSource.h: an object tuple as one source announced it.
#pragma once

#include "L2Rib/ObjTuple.h"
#include "L2Rib/Source.h"

namespace L2Rib {

class ObjTupleAndSource : public Quil::Value<ObjTupleAndSource> {
 public:
    constexpr ObjTupleAndSource() = default;
    constexpr ObjTupleAndSource(const ObjTuple& objTuple, Source source) : objTuple_(objTuple), source_(source) {}
    explicit ObjTupleAndSource(const Quil::String& text) { Quil::parseValue(text, *this); }

    constexpr const ObjTuple& objTuple() const { return objTuple_; }
    constexpr Source source() const { return source_; }
    // Shortcuts to the tuple.
    constexpr ObjId objId() const { return objTuple_.objId(); }
    constexpr TableType tableType() const { return objTuple_.tableType(); }
    LoadBalanceId lbId() const { return objTuple_.lbId(); }
    LabelId labelId() const { return objTuple_.labelId(); }
    DestId destId() const { return objTuple_.destId(); }

    constexpr std::uint32_t hash() const {
        return Verro::OneAtATime().add(objTuple_.hash()).add(static_cast<std::uint32_t>(source_)).finish();
    }
    // "(LB 5 sourceBgp)"
    Quil::String str() const { return Quil::cat(objTuple_.strNoTrailParen(), " ", stringValue(source_), ")"); }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::ObjTupleAndSource", Quil::field("objTuple", &ObjTupleAndSource::objTuple_),
                               Quil::field("source", &ObjTupleAndSource::source_));
    }

 private:
    ObjTuple objTuple_;
    Source source_ = sourceNone;
};
static_assert(sizeof(ObjTupleAndSource) == 16);

}  // namespace L2Rib

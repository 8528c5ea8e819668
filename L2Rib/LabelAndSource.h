// LabelAndSource.h: an output label: the label and the source's own tuple for it. 48 bytes.
#pragma once

#include "L2Rib/Label.h"
#include "L2Rib/ObjTupleAndSource.h"

namespace L2Rib {

class LabelAndSource : public Quil::Value<LabelAndSource> {
 public:
    LabelAndSource() = default;
    explicit LabelAndSource(LabelId key) : key_(key) {}
    explicit LabelAndSource(const Quil::String& text) { Quil::parseValue(text, *this); }

    LabelId key() const { return key_; }
    const Label& labelObj() const { return labelObj_; }
    const ObjTupleAndSource& sourceOtas() const { return sourceOtas_; }
    void keyIs(LabelId key) { key_ = key; }
    void labelObjIs(const Label& labelObj) { labelObj_ = labelObj; }
    void sourceOtasIs(const ObjTupleAndSource& sourceOtas) { sourceOtas_ = sourceOtas; }

    Quil::String str() const { return Quil::cat("(", labelObj_.stringValue(), " source: ", sourceOtas_, ")"); }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::LabelAndSource", Quil::field("key", &LabelAndSource::key_),
                               Quil::field("labelObj", &LabelAndSource::labelObj_),
                               Quil::field("sourceOtas", &LabelAndSource::sourceOtas_));
    }

 private:
    LabelId key_;
    Label labelObj_;
    ObjTupleAndSource sourceOtas_;
};
static_assert(sizeof(LabelAndSource) == 48 && alignof(LabelAndSource) == 4);

}  // namespace L2Rib

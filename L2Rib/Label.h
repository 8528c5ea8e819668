// Label.h: a label object: an MPLS label and where it leads. 24 bytes.
//
// A default Label is not all zero bytes: its label is the null label 0x100000.
#pragma once

#include "L2Rib/ObjTuple.h"
#include "Lanx/MplsLabel.h"

namespace L2Rib {

class L2RIB_EXPORT Label : public Quil::Value<Label> {
 public:
    Label() = default;
    explicit Label(LabelId key) : key_(key) {}
    explicit Label(const Quil::String& text) { Quil::parseValue(text, *this); }

    LabelId key() const { return key_; }
    Lanx::MplsLabel label() const { return label_; }
    const ObjTuple& next() const { return next_; }
    void keyIs(LabelId key) { key_ = key; }
    void labelIs(Lanx::MplsLabel label) { label_ = label; }
    void nextIs(const ObjTuple& next) { next_ = next; }

    Quil::String stringValue() const { return Quil::cat("Label key: ", key_, " value: ", label_, " next: ", next_); }
    Quil::String str() const { return Quil::cat("(", stringValue(), ")"); }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::Label", Quil::field("key", &Label::key_), Quil::field("label", &Label::label_),
                               Quil::field("next", &Label::next_));
    }

 private:
    LabelId key_;
    Lanx::MplsLabel label_;
    ObjTuple next_;
};
static_assert(sizeof(Label) == 24 && alignof(Label) == 4);

}  // namespace L2Rib

// ObjId.h: the 64-bit identifiers of objects; 0 means none. They are distinct types, so that an identifier of one table
// cannot be passed where another's is expected.
#pragma once

#include "Quil/Scalar.h"

namespace L2Rib {

template <class Derived>
class Identifier : public Quil::Scalar<Derived, std::uint64_t> {
 public:
    // 64-bit addition that wraps; no range check, not atomic.
    Derived& operator+=(std::uint64_t n) {
        this->value_ = this->value() + n;
        return static_cast<Derived&>(*this);
    }

 protected:
    using Quil::Scalar<Derived, std::uint64_t>::Scalar;
};

// Names any object in any of the three object tables.
class ObjId : public Identifier<ObjId> {
 public:
    static constexpr const char* fwkName = "L2Rib::ObjId";
    constexpr ObjId() = default;
    constexpr explicit ObjId(std::uint64_t value) : Identifier(value) {}
    explicit ObjId(const Quil::String& text) { Quil::parseValue(text, *this); }
};

// Names a destination.
class DestId : public Identifier<DestId> {
 public:
    static constexpr const char* fwkName = "L2Rib::DestId";
    constexpr DestId() = default;
    constexpr explicit DestId(std::uint64_t value) : Identifier(value) {}
    explicit DestId(const Quil::String& text) { Quil::parseValue(text, *this); }
};

// Names a label object.
class LabelId : public Identifier<LabelId> {
 public:
    static constexpr const char* fwkName = "L2Rib::LabelId";
    constexpr LabelId() = default;
    constexpr explicit LabelId(std::uint64_t value) : Identifier(value) {}
    explicit LabelId(const Quil::String& text) { Quil::parseValue(text, *this); }
};

// Names a load-balance group.
class LoadBalanceId : public Identifier<LoadBalanceId> {
 public:
    static constexpr const char* fwkName = "L2Rib::LoadBalanceId";
    constexpr LoadBalanceId() = default;
    constexpr explicit LoadBalanceId(std::uint64_t value) : Identifier(value) {}
    explicit LoadBalanceId(const Quil::String& text) { Quil::parseValue(text, *this); }
};

static_assert(sizeof(ObjId) == 8 && alignof(ObjId) == 4);

}  // namespace L2Rib

// Scalar.h: a value of one unsigned number with a type of its own, so that a VLAN cannot be passed for a label.
//
//   class VlanId : public Quil::Scalar<VlanId, std::uint16_t> {
//       static constexpr const char* fwkName = "Bridging::VlanId";
//       static void fwkCheck(std::uint64_t number);   // raises the range exception; called where text or a log is read
//   };
// Printed as the decimal number; read from that, or from "Value('Bridging::VlanId', ** {'value': 10})".
#pragma once

#include <ostream>

#include "Quil/AttrLog.h"
#include "Quil/Value.h"
#include "Verro/Hash.h"

namespace Quil {

template <class Derived, class Raw>
class Scalar {
 public:
    using RawType = Raw;
    constexpr Raw value() const { return value_; }
    // One-at-a-time over the little-endian bytes of the number.
    constexpr std::uint32_t hash() const { return Verro::OneAtATime().add(value()).finish(); }
    String str() const { return cat(value()); }

    friend constexpr bool operator==(const Derived& a, const Derived& b) { return a.value() == b.value(); }
    friend constexpr bool operator<(const Derived& a, const Derived& b) { return a.value() < b.value(); }
    friend constexpr bool operator!(const Derived& v) { return v == Derived(); }
    friend std::ostream& operator<<(std::ostream& out, const Derived& v) { return out << v.str(); }

    void fwkAppendStrep(String& out) const { append(out, value()); }
    void fwkParseStrep(StrepCursor& cursor) {
        const String open = cat("Value('", Derived::fwkName, "', ** {'value': ");
        const bool wrapped = cursor.startsWith(open);
        if (wrapped) cursor.expect(open);
        if (wrapped) {
            atField("value", [&] { value_ = checked(cursor.word()); });
            cursor.expect("})");
        } else {
            value_ = checked(cursor.word());
        }
    }
    void fwkWrite(AttrLogWriter& log) const { log.write(value()); }
    void fwkRead(AttrLogReader& log) {
        const Raw number = log.get<Raw>();
        check(number);
        value_ = number;
    }

 protected:
    constexpr Scalar() = default;
    constexpr explicit Scalar(Raw value) : value_(value) {}
    using Stored = std::conditional_t<sizeof(Raw) == 8, Flat<std::uint64_t>, Raw>;
    Stored value_{};

 private:
    static void check(std::uint64_t number) {
        if constexpr (requires { Derived::fwkCheck(number); }) Derived::fwkCheck(number);
    }
    static Raw checked(std::string_view word) {
        std::uint64_t number = 0;
        const bool negative = word.starts_with('-');
        const std::string_view digits = negative ? word.substr(1) : word;
        if (digits.empty() || digits.find_first_not_of("0123456789") != digits.npos) {
            throw RangeException(cat("'", word, "' is not a number"));
        }
        const bool outside = !parseNumber(digits, number) || negative;
        check(outside ? ~std::uint64_t(0) : number);
        if (outside || number != static_cast<Raw>(number)) {
            throw RangeException(cat(Derived::fwkName, "::value ", word, " does not fit"));
        }
        return static_cast<Raw>(number);
    }
};

}  // namespace Quil

// HostKeyAndSource.h: a host as a consumer was last told of it: its key and the source it had then.
#pragma once

#include "Bridging/MacVlanPair.h"
#include "L2Rib/Source.h"

namespace L2Rib {

class L2RIB_EXPORT HostKeyAndSource : public Quil::Value<HostKeyAndSource> {
 public:
    HostKeyAndSource() = default;
    HostKeyAndSource(const Bridging::MacVlanPair& key, Source source) : key_(key), source_(source) {}
    explicit HostKeyAndSource(const Quil::String& text) { Quil::parseValue(text, *this); }

    const Bridging::MacVlanPair& key() const { return key_; }
    Source source() const { return source_; }

    Quil::String str() const;

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::HostKeyAndSource", Quil::field("key", &HostKeyAndSource::key_),
                               Quil::field("source", &HostKeyAndSource::source_));
    }

 private:
    Bridging::MacVlanPair key_;
    Source source_ = sourceNone;
};

inline Quil::String HostKeyAndSource::str() const { return Quil::valueToStrep(*this); }

}  // namespace L2Rib

// HostAndSource.h: an output host: the record the agent took and the source it took it from. 116 bytes.
//
// It has two keys, its own and its host's, which nothing keeps alike; the table goes by its own.
#pragma once

#include "L2Rib/Host.h"
#include "L2Rib/Source.h"

namespace L2Rib {

class L2RIB_EXPORT HostAndSource : public Quil::Value<HostAndSource> {
 public:
    HostAndSource() = default;
    explicit HostAndSource(const Bridging::MacVlanPair& key) : key_(key) {}
    explicit HostAndSource(const Quil::String& text) { Quil::parseValue(text, *this); }  // as Host: stops at ciDest

    const Bridging::MacVlanPair& key() const { return key_; }
    const Host& host() const { return host_; }
    Source source() const { return source_; }
    void keyIs(const Bridging::MacVlanPair& key) { key_ = key; }
    void hostIs(const Host& host) { host_ = host; }
    void sourceIs(Source source) { source_ = source; }

    Quil::String str() const { return Quil::cat("(", host_.stringValue(), " ", stringValue(source_), ")"); }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::HostAndSource", Quil::field("key", &HostAndSource::key_),
                               Quil::field("host", &HostAndSource::host_),
                               Quil::field("source", &HostAndSource::source_));
    }

 private:
    Bridging::MacVlanPair key_;
    Host host_;
    Source source_ = sourceNone;
};
static_assert(sizeof(HostAndSource) == 116 && alignof(HostAndSource) == 4);

}  // namespace L2Rib

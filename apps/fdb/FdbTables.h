// FdbTables: the host tables of a producer: one HostInput for each source it finds.
#pragma once

#include <functional>
#include <map>

#include "L2Rib/HostInput.h"
#include "fdb/FdbModel.h"

namespace Fdb {

class Tables : public Sink {
 public:
    using OnSource = std::function<void(L2Rib::Source, const Quil::Ptr<L2Rib::HostInput>&)>;
    // onSource is called when a source says its first host, before that host is in its table.
    explicit Tables(OnSource onSource) : onSource_(std::move(onSource)) {}
    void hostIs(L2Rib::Source source, const L2Rib::Host& host) override;
    void hostDel(L2Rib::Source source, const Bridging::MacVlanPair& key) override;
    const std::map<L2Rib::Source, Quil::Ptr<L2Rib::HostInput>>& tables() const { return tables_; }

 private:
    const OnSource onSource_;
    std::map<L2Rib::Source, Quil::Ptr<L2Rib::HostInput>> tables_;
};

}  // namespace Fdb

#include "fdb/FdbTables.h"

namespace Fdb {

void Tables::hostIs(L2Rib::Source source, const L2Rib::Host& host) {
    auto& table = tables_[source];
    if (!table) {
        table = L2Rib::hostInputFactory(stringValue(source));
        onSource_(source, table);
    }
    table->hostIs(host);
}

void Tables::hostDel(L2Rib::Source source, const Bridging::MacVlanPair& key) {
    if (const auto found = tables_.find(source); found != tables_.end()) found->second->hostDel(key);
}

}  // namespace Fdb

// TableInfo.h: how the four output tables are mounted. All are sized alike.
#pragma once

#include "Quil/Value.h"
#include "QuilMemtab/MountInfo.h"

namespace L2Rib {

class L2RIB_EXPORT TableInfo : public Quil::Value<TableInfo> {
 public:
    static constexpr std::uint32_t maxEntries = 16384;

    QuilMemtab::MountInfo hostOutputInfo(QuilMemtab::QuilMemtabType mode) const { return info(mode, "host"); }
    QuilMemtab::MountInfo destOutputInfo(QuilMemtab::QuilMemtabType mode) const { return info(mode, "dest"); }
    QuilMemtab::MountInfo labelOutputInfo(QuilMemtab::QuilMemtabType mode) const { return info(mode, "label"); }
    QuilMemtab::MountInfo loadBalanceOutputInfo(QuilMemtab::QuilMemtabType mode) const { return info(mode, "lb"); }
    Quil::String str() const { return {}; }

    // Read like fields, but each takes a mode.
    static constexpr const char* fwkOperations[] = {"hostOutputInfo", "loadBalanceOutputInfo", "labelOutputInfo",
                                                    "destOutputInfo"};
    static constexpr auto fwkFields() { return Quil::fieldList("L2Rib::TableInfo"); }

 private:
    static QuilMemtab::MountInfo info(QuilMemtab::QuilMemtabType mode, const char* collection) {
        QuilMemtab::MountInfo info = QuilMemtab::MountInfo::writer(collection, maxEntries);
        info.mode = mode;
        return info;
    }
};

}  // namespace L2Rib

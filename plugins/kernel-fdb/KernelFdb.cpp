// kernel-fdb: programs every host that is behind a VTEP into a VXLAN device of this machine, and removes it again.
//
//   L2RIB_KERNEL_FDB            the devices, separated by commas: "vx100" for the hosts of all VLANs, "vx100=10" for
//   those of
//                               VLAN 10. Hosts of a VLAN-aware bridge are programmed with their VLAN.
//   L2RIB_KERNEL_FDB_OWN_VTEP   where the table is another switch's: the VTEP behind which its own ports are
//
//   L2RIB_KERNEL_FDB_INTERVAL   seconds (60) after which the kernel's table is read again and what differs is mended;
//   after an
//                               error that is done within a second
#include <algorithm>
#include <list>
#include <optional>

#include "L2Rib/L2RibClientSm.h"
#include "L2Rib/Plugin/Plugin.h"
#include "plugins/common/Settings.h"
#include "plugins/kernel-fdb/FdbDevice.h"

namespace KernelFdb {
namespace {

constexpr Quil::Seconds retryInterval = 1;

class Programmer : public L2Rib::L2RibClientSm {
 public:
    explicit Programmer(const Quil::Ptr<L2Rib::Plugin::Context>& context)
        : L2RibClientSm("kernel-fdb", context), mender_(*this, context->clock()) {
        const Quil::String devices = Plugins::setting("L2RIB_KERNEL_FDB");
        if (devices.empty()) throw Quil::RangeException("is not set: the VXLAN devices to program", "L2RIB_KERNEL_FDB");
        Quil::atField("L2RIB_KERNEL_FDB", [&] { addDevices(devices, context->entityManager()->root()); });
        if (const auto own = Plugins::setting("L2RIB_KERNEL_FDB_OWN_VTEP"); !own.empty()) {
            Quil::atField("L2RIB_KERNEL_FDB_OWN_VTEP", [&] { ownVtep_ = Lanx::IpGenAddr(own); });
        }
        if (const auto interval = Plugins::setting("L2RIB_KERNEL_FDB_INTERVAL"); !interval.empty()) {
            if (!Quil::parseNumber(interval, mendInterval_) || !(mendInterval_ >= 0.1 && mendInterval_ <= 86400)) {
                throw Quil::RangeException("< 0.1 or > 86400 not allowed", "L2RIB_KERNEL_FDB_INTERVAL " + interval);
            }
        }
        mender_.wakeupTimeIs(context->clock()->now() + std::min(retryInterval, mendInterval_));
    }

    void doAddHost(const Bridging::MacVlanPair& key) override { doUpdateHost(key); }
    void doUpdateHost(const Bridging::MacVlanPair& key) override {
        const auto vtep = vtepOf(key);
        for (FdbDevice& device : devices_) {
            if (device.serves(key)) vtep ? device.hostIs(key, *vtep) : device.hostDel(key);
        }
        retrySoon();
    }
    void doRemoveHost(const Bridging::MacVlanPair& key) override {
        for (FdbDevice& device : devices_) device.hostDel(key);
        retrySoon();
    }

 private:
    struct Mender : Quil::Clock::NotifieeConst {
        Programmer& programmer;
        Mender(Programmer& p, const Quil::Ptr<const Quil::Clock>& clock) : NotifieeConst(clock), programmer(p) {}
        void onTime() override { programmer.mend(); }
    };

    void addDevices(const Quil::String& list, const Quil::String& root) {
        for (std::size_t at = 0; at <= list.size();) {
            const std::size_t end = std::min(list.find(',', at), list.size());
            const Quil::String item = list.substr(at, end - at), name = item.substr(0, item.find('='));
            const bool hasVlan = name.size() < item.size();
            if (name.empty() || name.find('/') != Quil::String::npos)
                throw Quil::RangeException(item + ": is no device");
            const std::uint16_t vlan =
                hasVlan ? Bridging::VlanId(item.substr(name.size() + 1)).value() : std::uint16_t(0);
            devices_.emplace_back(name, vlan, root + "/kernel-fdb." + name);
            at = end + 1;
        }
    }

    // Where the host is reached; none when it is not behind a VTEP.
    std::optional<Lanx::IpGenAddr> vtepOf(const Bridging::MacVlanPair& key) const {
        L2Rib::HostAndSource record;
        if (!l2RibOutput()->host(key, record) || !(record.host().next() == L2Rib::ObjTuple())) return std::nullopt;
        const L2Rib::CiDest& dest = record.host().ciDest();
        if (dest.destType() == L2Rib::destTypeIntf) return ownVtep_;
        if (dest.destType() != L2Rib::destTypeVxlan) return std::nullopt;
        return dest.vtepAddr(L2Rib::CiVtepIndex(0));
    }

    void retrySoon() {
        const bool failed = std::any_of(devices_.begin(), devices_.end(), [](const auto& d) { return d.hasFailed(); });
        const Quil::Seconds soon = clock()->now() + retryInterval;
        if (failed && mender_.wakeupTime() > soon) mender_.wakeupTimeIs(soon);
    }

    void mend() {
        // Everything wanted is known when one synchronisation is through and nothing waits for review.
        const bool sweep = reviewedOnce() && changedHost().empty() && l2RibOutput()->hostControl().isReadable();
        for (FdbDevice& device : devices_) device.mend(sweep);
        mender_.wakeupTimeIs(clock()->now() + (sweep ? mendInterval_ : std::min(retryInterval, mendInterval_)));
        retrySoon();
    }

    std::list<FdbDevice> devices_;
    std::optional<Lanx::IpGenAddr> ownVtep_;
    Quil::Seconds mendInterval_ = 60;
    Mender mender_;
};

}  // namespace
}  // namespace KernelFdb

void l2ribPluginInit(const Quil::Ptr<L2Rib::Plugin::Context>& context) {
    static const auto programmer = Quil::makePtr<KernelFdb::Programmer>(context);
    programmer->sourceFilterIs(Plugins::sourceFilter());
}

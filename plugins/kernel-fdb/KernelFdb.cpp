// kernel-fdb: programs every host that is behind a VTEP, or behind an object that leads to VTEPs, into a VXLAN device
// of this network namespace, and removes it again. Several VTEPs are a group of next hops, one for all hosts of the
// object.
//
//   L2RIB_KERNEL_FDB            the devices, separated by commas: "vx100" for the hosts of all VLANs, "vx100=10" for
//                               those of VLAN 10. Hosts of a VLAN-aware bridge are programmed with their VLAN.
//   L2RIB_KERNEL_FDB_OWN_VTEP   where the table is another switch's: the VTEP behind which its own ports are
//   L2RIB_KERNEL_FDB_INTERVAL   seconds (60) after which the kernel's table is read again and what differs is mended;
//                               after an error that is done within a second, then within 2, 4, ...
#include <sys/stat.h>

#include <algorithm>
#include <list>
#include <optional>

#include "L2Rib/L2RibClientSm.h"
#include "L2Rib/OutputObjects.h"
#include "L2Rib/Plugin/Plugin.h"
#include "plugins/common/Settings.h"
#include "plugins/kernel-fdb/FdbDevice.h"

namespace KernelFdb {
namespace {

constexpr Quil::Seconds retryInterval = 1;

// Notes of devices of one name in two namespaces are told apart.
Quil::String notesPath(const Quil::String& root, const Quil::String& device) {
    struct stat status {};
    if (stat("/proc/self/ns/net", &status) != 0) throw Quil::SystemException("kernel-fdb: no /proc/self/ns/net");
    const Quil::String directory = Plugins::setting("Q7_CHROOT") + root;
    Mem::Files::makeDirectories(directory);
    return Quil::cat(directory, "/kernel-fdb.", device, ".", status.st_ino);
}

// It asks for the hosts of all sources and filters itself: so it is told when a host goes over to a source that is not
// wanted.
class Programmer : public L2Rib::L2RibClientSm {
 public:
    Programmer(const Quil::Ptr<L2Rib::Plugin::Context>& context, std::uint32_t sources)
        : L2RibClientSm("kernel-fdb", context),
          sources_(sources),
          groups_(firstDevice()),
          objects_(*context->entityManager(), [this](const auto& key) { handleHost(key); }),
          newObjects_(groups_, objects_.loadBalances()),
          mender_(*this, context->clock()) {
        const Quil::String devices = devicesSetting();
        Quil::atField("L2RIB_KERNEL_FDB", [&] { addDevices(devices, context->entityManager()->root()); });
        if (const auto own = Plugins::setting("L2RIB_KERNEL_FDB_OWN_VTEP"); !own.empty()) {
            Quil::atField("L2RIB_KERNEL_FDB_OWN_VTEP", [&] { ownVtep_ = Lanx::IpGenAddr(own); });
        }
        if (const auto interval = Plugins::setting("L2RIB_KERNEL_FDB_INTERVAL"); !interval.empty()) {
            if (!Quil::parseNumber(interval, interval_) || !(interval_ >= 0.1 && interval_ <= 86400)) {
                throw Quil::RangeException("< 0.1 or > 86400 not allowed", "L2RIB_KERNEL_FDB_INTERVAL " + interval);
            }
        }
        mender_.wakeupTimeIs(context->clock()->now() + soon());
    }

    void doAddHost(const Bridging::MacVlanPair& key) override { hostIs(key); }
    void doUpdateHost(const Bridging::MacVlanPair& key) override { hostIs(key); }
    void doRemoveHost(const Bridging::MacVlanPair& key) override { hostIs(key); }

 private:
    struct Mender : Quil::Clock::NotifieeConst {
        Programmer& programmer;
        Mender(Programmer& p, const Quil::Ptr<const Quil::Clock>& clock) : NotifieeConst(clock), programmer(p) {}
        void onTime() override { programmer.mend(); }
    };

    // Another incarnation of the tables may have given the identifiers of objects to others.
    struct NewObjects : L2Rib::LoadBalanceOutput::NotifieeConst {
        NextHopGroups& groups;
        NewObjects(NextHopGroups& g, const Quil::Ptr<L2Rib::LoadBalanceOutput>& table) : groups(g) {
            notifierIs(table);
        }
        void onLb() override { groups.forgetObjects(); }
    };

    static Quil::String devicesSetting() {
        Quil::String devices = Plugins::setting("L2RIB_KERNEL_FDB");
        if (devices.empty()) throw Quil::RangeException("is not set: the VXLAN devices to program", "L2RIB_KERNEL_FDB");
        return devices;
    }

    static Quil::String firstDevice() {
        const Quil::String devices = devicesSetting();
        return devices.substr(0, devices.find_first_of(",="));
    }

    void addDevices(const Quil::String& list, const Quil::String& root) {
        for (std::size_t at = 0; at <= list.size();) {
            const std::size_t end = std::min(list.find(',', at), list.size());
            const Quil::String item = list.substr(at, end - at), name = item.substr(0, item.find('='));
            const bool hasVlan = name.size() < item.size();
            if (name.empty() || name.find('/') != Quil::String::npos)
                throw Quil::RangeException(item + ": is no device");
            const std::uint16_t vlan =
                hasVlan ? Bridging::VlanId(item.substr(name.size() + 1)).value() : std::uint16_t(0);
            devices_.emplace_back(name, vlan, notesPath(root, name), groups_);
            at = end + 1;
        }
    }

    // Where the host is reached; none when it is not wanted, or not behind a VTEP.
    std::optional<Target> targetOf(const Bridging::MacVlanPair& key) {
        L2Rib::HostAndSource record;
        const bool isServed =
            std::any_of(devices_.begin(), devices_.end(), [&](const FdbDevice& device) { return device.serves(key); });
        const bool isWanted = isServed && l2RibOutput()->host(key, record) && (record.source() & sources_) != 0;
        const L2Rib::ObjTuple next = isWanted ? record.host().next() : L2Rib::ObjTuple();
        objects_.hostIs(key, next);
        if (!isWanted) return std::nullopt;
        if (!(next == L2Rib::ObjTuple())) return targetOf(next);
        const L2Rib::CiDest& dest = record.host().ciDest();
        if (dest.destType() == L2Rib::destTypeIntf) return behind(ownVtep_);
        if (dest.destType() != L2Rib::destTypeVxlan) return std::nullopt;
        return behind(dest.vtepAddr(L2Rib::CiVtepIndex(0)));
    }
    static std::optional<Target> behind(const std::optional<Lanx::IpGenAddr>& vtep) {
        if (!vtep || *vtep == Lanx::IpGenAddr()) return std::nullopt;
        return Target{*vtep, 0};
    }
    // Where there is no group to be had, the lowest VTEP is better than none.
    std::optional<Target> targetOf(const L2Rib::ObjTuple& object) {
        NextHopGroups::Vteps vteps;
        for (const L2Rib::Dest& dest : objects_.dests(object)) {
            if (dest.destType() == L2Rib::destTypeVxlan) vteps.insert(dest.vxlan().vtepAddr());
            if (dest.destType() == L2Rib::destTypeIntf && ownVtep_) vteps.insert(*ownVtep_);
        }
        vteps.erase(Lanx::IpGenAddr());
        for (const FdbDevice& device : devices_) vteps.erase(device.local().value_or(Lanx::IpGenAddr()));
        if (vteps.empty()) return std::nullopt;
        if (vteps.size() == 1) return behind(*vteps.begin());
        const NextHopGroups::Id group = groups_.groupOf(object, vteps);
        return group != 0 ? Target{{}, group} : behind(*vteps.begin());
    }

    // By what the table says now.
    void hostIs(const Bridging::MacVlanPair& key) {
        const auto target = targetOf(key);
        for (FdbDevice& device : devices_) {
            if (device.serves(key)) target ? device.hostIs(key, *target) : device.hostDel(key);
        }
        if (hasFailed()) mender_.wakeupTimeIs(std::min(mender_.wakeupTime(), clock()->now() + failurePause_));
    }

    void mend() {
        lookSoon();  // whatever comes of this
        const auto& table = l2RibOutput()->hostControl();
        // What the table said before it could be read was nothing: everything is delivered once more.
        if (!wasReadable_ && table.isReadable()) {
            wasReadable_ = true;
            doReplayHosts();
            return lookSoon();
        }
        if (!isWorking_) look(wasReadable_ && reviewedOnce() && table.corruptions() == 0);
        isWorking_ = false;
        for (FdbDevice& device : devices_) isWorking_ = device.work() || isWorking_;
        mender_.wakeupTimeIs(clock()->now() + (isWorking_ ? 0 : pause()));
    }
    Quil::Seconds pause() {
        if (!wasReadable_ || !reviewedOnce()) return soon();
        if (!hasFailed()) {
            failurePause_ = soon();
            return interval_;
        }
        return std::exchange(failurePause_, std::min(2 * failurePause_, interval_));
    }

    // everythingIsKnown: what is not wanted is over, unless a review of it is due.
    void look(bool everythingIsKnown) {
        groups_.look();
        std::set<NextHopGroups::Id> inUse;
        for (FdbDevice& device : devices_) {
            // Who was missed, such as a host that vanished while its handler ran, is found here.
            for (const auto& [key, target] : FdbDevice::Wanted(device.wanted())) {
                if (everythingIsKnown && targetOf(key) != target) hostIs(key);
            }
            device.look([&](const auto& key) { return everythingIsKnown && !changedHost().contains(key); });
            inUse.insert(device.groupsInUse().begin(), device.groupsInUse().end());
        }
        // Not on the word of a look that was cut short: the kernel deletes what leads to a group along with it.
        if (everythingIsKnown && !hasFailed()) groups_.sweep(wantedGroups(), inUse);
    }
    std::set<NextHopGroups::Id> wantedGroups() const {
        std::set<NextHopGroups::Id> groups;
        for (const FdbDevice& device : devices_) {
            for (const auto& [key, target] : device.wanted()) groups.insert(target.group);
        }
        return groups;
    }

    Quil::Seconds soon() const { return std::min(retryInterval, interval_); }
    void lookSoon() { mender_.wakeupTimeIs(clock()->now() + soon()); }
    bool hasFailed() const {
        return groups_.hasFailed() ||
               std::any_of(devices_.begin(), devices_.end(), [](const FdbDevice& d) { return d.hasFailed(); });
    }

    const std::uint32_t sources_;
    NextHopGroups groups_;
    L2Rib::OutputObjects objects_;
    const NewObjects newObjects_;
    std::list<FdbDevice> devices_;
    std::optional<Lanx::IpGenAddr> ownVtep_;
    Quil::Seconds interval_ = 60;
    Quil::Seconds failurePause_ = retryInterval;  // after the next failure
    bool wasReadable_ = false;
    bool isWorking_ = false;  // through what the last look found
    Mender mender_;
};

}  // namespace
}  // namespace KernelFdb

void l2ribPluginInit(const Quil::Ptr<L2Rib::Plugin::Context>& context) {
    static const auto programmer = Quil::makePtr<KernelFdb::Programmer>(context, Plugins::sourceFilter());
    programmer->sourceFilterIs(L2Rib::sourceAll);
}

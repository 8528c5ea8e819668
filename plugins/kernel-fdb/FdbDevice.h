// FdbDevice.h: one VXLAN device whose forwarding entries this process makes: what is wanted, what the kernel has, and
// how the two become alike.
//
// An entry is one RTM_NEWNEIGH for both halves, the bridge's and the device's own: state REACHABLE, flags SELF, MASTER
// and EXT_LEARNED. An entry on the device that this process did not make is never touched; which ones it made is kept
// in a file over its restarts, noted before an entry is made and after it was removed.
//
// Threads   Event-loop thread; a request blocks for the time the kernel takes.
// Errors    What the kernel refuses is counted and tried again by mend(). SystemException when netlink or the file is
// not
//           to be had.
#pragma once

#include <fstream>
#include <map>
#include <set>

#include "Bridging/MacVlanPair.h"
#include "Quil/Counter.h"
#include "common/Netlink.h"

namespace KernelFdb {

class FdbDevice {
 public:
    // vlan 0: hosts of all VLANs. notes: the file that remembers what was made.
    FdbDevice(Quil::String name, std::uint16_t vlan, Quil::String notes);

    const Quil::String& name() const { return name_; }
    bool serves(const Bridging::MacVlanPair& key) const { return vlan_ == 0 || key.vlanId().value() == vlan_; }

    // The host is to be reached through this VTEP; it is not to be reached here any more.
    void hostIs(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep);
    void hostDel(const Bridging::MacVlanPair& key);
    // Reads the kernel's entries and mends what differs. sweep: everything that is wanted is known by now, so what was
    // made before and is not among it goes.
    void mend(bool sweep);
    bool hasFailed() const { return hasFailed_; }  // since the last mend()

 private:
    struct Link {
        std::uint32_t index = 0;  // 0: there is no such VXLAN device
        std::optional<Lanx::IpGenAddr> local;
        bool isVlanAware = false;
    };
    struct Found {
        std::optional<Lanx::IpGenAddr> vtep;  // of the device's half
        bool hasBridgeHalf = false;
    };
    using Entries = std::map<Bridging::MacVlanPair, Lanx::IpGenAddr>;

    void readLink();
    std::map<Lanx::EthAddr, Found> readEntries() const;
    bool isForeign(const Bridging::MacVlanPair& key);
    void program(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep);
    void remove(const Bridging::MacVlanPair& key);
    int request(std::uint16_t type, std::uint16_t flags, std::uint8_t halves, const Bridging::MacVlanPair& key,
                const Lanx::IpGenAddr* vtep, const Netlink::Visit& answer = {});
    void fail(const char* what, const Bridging::MacVlanPair& key, int error);
    void readNotes();
    void note(char sign, const Bridging::MacVlanPair& key);

    const Quil::String name_;
    const std::uint16_t vlan_;
    const Quil::String notesPath_;
    std::ofstream notes_;
    Netlink::Socket socket_;
    Link link_;
    Entries wanted_;
    Entries made_;                           // as far as is known; an address of 0.0.0.0: before this process
    std::set<Bridging::MacVlanPair> noted_;  // in the file
    bool hasFailed_ = false;
    Quil::Counter programmed_{"kernelFdbProgrammed"}, removed_{"kernelFdbRemoved"}, mended_{"kernelFdbMended"},
        foreign_{"kernelFdbForeign"}, errors_{"kernelFdbErrors"};
};

}  // namespace KernelFdb

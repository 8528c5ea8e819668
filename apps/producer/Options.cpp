// The options that all programs with a producer in them share.
#include <CLI/CLI.hpp>

#include "Mem/Files.h"
#include "Mem/WriterLock.h"
#include "producer/AnnouncedSource.h"
#include "producer/Producer.h"

namespace Producer {

Producer::~Producer() = default;

NameLock::NameLock(const Quil::String& root, const Quil::Name& name) {
    AnnouncedSource::checkName(name);
    const Quil::String directory = Mem::pathUnder(root, "producers");
    Mem::Files::makeDirectories(directory);
    file_ = Mem::Files::openOrCreate(directory + "/" + name);
    if (!Mem::WriterLock::acquire(file_.get())) {
        throw Quil::SystemException(Quil::cat("another producer of the name ", name, " is at work under ", root));
    }
}

void Options::addTo(CLI::App& app) {
    app.add_option("--name", name, "of the sources, before a hyphen and each source (default kernel, or the file's)");
    app.add_option("--max-hosts", maxHosts, "for how many hosts each source's table is made")->capture_default_str();
    app.add_option("--vlan", vlans, "BRIDGE=VLAN: the VLAN of entries that name none (default 1)");
    app.add_option("--vxlan", vxlans, "with a file: this device is VXLAN, whatever its rows say");
    app.add_option("--programmed", programmed,
                   "a VXLAN device whose external entries a consumer of this table makes: they are no source");
    app.add_option("--own", owns, "an address of this switch: its permanent entries are router MACs");
}

Fdb::Settings Options::settings() const {
    Fdb::Settings settings;
    if (maxHosts == 0) throw Quil::RangeException("is 0", "--max-hosts");
    for (const std::string& vlan : vlans) {
        const auto equals = vlan.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Quil::RangeException("is not BRIDGE=VLAN", "--vlan " + vlan);
        Quil::atField(("--vlan " + vlan).c_str(), [&] {
            settings.vlanOfBridge[vlan.substr(0, equals)] = Bridging::VlanId(vlan.substr(equals + 1)).value();
        });
    }
    settings.programmedDevices.insert(programmed.begin(), programmed.end());
    for (const std::string& own : owns) {
        Quil::atField("--own", [&] { settings.ownAddresses.insert(Lanx::EthAddr(own)); });
    }
    return settings;
}

Quil::String summaryOf(const Fdb::Statistics& s) {
    return Quil::cat(s.floodEntries, " flood, ", s.nextHopGroupEntries, " with an unknown next-hop group, ",
                     s.staleRemotes, " stale remotes");
}

}  // namespace Producer

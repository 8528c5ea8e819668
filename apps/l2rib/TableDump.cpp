// l2rib table dump: tables as the JSON that l2rib-source file reads.
#include <algorithm>
#include <iostream>

#include "L2Rib/DestOutput.h"
#include "L2Rib/DestTable.h"
#include "L2Rib/HostInput.h"
#include "L2Rib/LabelOutput.h"
#include "L2Rib/LabelTable.h"
#include "L2Rib/LoadBalanceOutput.h"
#include "L2Rib/LoadBalanceTable.h"
#include "L2Rib/SourceDirEntry.h"
#include "Mem/Shared.h"
#include "Memtab/Summary.h"
#include "common/HostText.h"
#include "common/SourceJson.h"
#include "l2rib/AgentView.h"
#include "l2rib/Command.h"
#include "l2rib/TableFiles.h"

namespace Tool {
namespace {

using Apps::SourceContents;

// What has been read so far: of each source's directory one entry, and one for each source of the output.
class Dump {
 public:
    explicit Dump(const std::string& root) : em_(loop_, root, "l2rib") { findSources(root); }

    void add(const TableFiles& table) {
        const Quil::String type = classTypeOf(table);
        using namespace L2Rib;
        const bool known =
            addRows<HostInput>(table, type, &SourceContents::hosts) ||
            addRows<LoadBalanceTable>(table, type, &SourceContents::loadBalances) ||
            addRows<LabelTable>(table, type, &SourceContents::labels) ||
            addRows<DestTable>(table, type, &SourceContents::dests) ||
            addOutput<HostOutput>(table, type, &SourceContents::hosts, &sourceOfHost, &HostAndSource::host) ||
            addOutput<LoadBalanceOutput>(table, type, &SourceContents::loadBalances,
                                         &sourceOfObject<LoadBalanceAndSource>, &LoadBalanceAndSource::lb) ||
            addOutput<LabelOutput>(table, type, &SourceContents::labels, &sourceOfObject<LabelAndSource>,
                                   &LabelAndSource::labelObj) ||
            addOutput<DestOutput>(table, type, &SourceContents::dests, &sourceOfObject<DestAndSource>,
                                  &DestAndSource::dest);
        if (!known) throw Quil::SystemException(Quil::cat(table.name, ": ", type, " cannot be dumped"));
    }
    // Whether it is of a source that is there, as far as anybody knows.
    bool isAnnounced(const TableFiles& table) const { return !hasAgent_ || known_.contains(directoryOf(table)); }
    std::vector<SourceContents> contents() && {
        std::vector<SourceContents> all;
        for (auto& [name, source] : sources_) all.push_back(std::move(source));
        return all;
    }

 private:
    static L2Rib::Source sourceOfHost(const L2Rib::HostAndSource& record) { return record.source(); }
    template <class Record>
    static L2Rib::Source sourceOfObject(const Record& record) {
        return record.sourceOtas().source();
    }
    static Quil::String classTypeOf(const TableFiles& table) {
        Mem::SharedDirectory directory(table.directory);
        Quil::String reason;
        const auto summary = Memtab::summarize(Quil::Trace::handler("dump"), directory, reason);
        if (!summary) throw Quil::SystemException(Quil::cat(table.name, ": ", reason));
        return summary->classType;
    }

    // Which source a table is of, and its flood sets, only the agent knows; without one the rows are dumped alone.
    void findSources(const std::string& root) {
        try {
            const AgentView directory(root, Agent::Places::sources, L2Rib::agentSourceDirFactory("sources"));
            for (const auto& [name, entry] : directory->source()) {
                const Quil::String path = entry->hostTableMemtabPath();
                known_[path.substr(0, path.rfind("/host/host"))] = entry;
            }
            hasAgent_ = true;
        } catch (const Quil::SystemException&) {
            std::cerr << "l2rib: table dump: no agent answers: the dump lacks the sources and flood sets of inputs\n";
        }
    }

    // "l2rib/input/NAME" of "l2rib/input/NAME/host/host".
    static Quil::String directoryOf(const TableFiles& table) {
        return table.name.substr(0, table.name.rfind('/', table.name.rfind('/') - 1));
    }
    SourceContents& inputOf(const TableFiles& table) {
        const Quil::String directory = directoryOf(table);
        const auto [at, isNew] = sources_.try_emplace(directory);
        SourceContents& source = at->second;
        if (!isNew) return source;
        source.name = directory.substr(directory.rfind('/') + 1);
        const auto entry = known_.find(directory);
        if (entry == known_.end()) return source;
        source.source = entry->second->source();
        for (const auto& [vlanId, vlan] : entry->second->vlanFloodSet()) {
            for (const auto& [mac, set] : vlan->floodSet()) {
                source.floodSets.push_back({vlanId, mac, set->floodSetType(), {}});
                for (const auto& [dest, flag] : set->destSet()) {
                    if (flag) source.floodSets.back().dests.push_back(dest);
                }
                std::sort(source.floodSets.back().dests.begin(), source.floodSets.back().dests.end());
            }
        }
        return source;
    }

    template <class Table>
    Quil::Ptr<Table> mount(const TableFiles& table, const char* collection) {
        const auto last = table.name.rfind('/'), before = table.name.rfind('/', last - 1);
        auto mounted = Quil::makePtr<Table>(table.name.substr(before + 1, last - before - 1));
        em_.mount(table.name.substr(0, before), mounted, QuilMemtab::MountInfo::reader(collection));
        return mounted;
    }

    template <class Table>
    bool addRows(const TableFiles& table, const Quil::String& type,
                 std::vector<typename Table::Record> SourceContents::*rows) {
        if (type != Table::fwkTypeName) return false;
        auto& into = inputOf(table).*rows;
        for (const auto& row : mount<Table>(table, Table::fwkCollection)->records()) into.push_back(row);
        sort(into);
        return true;
    }

    // Each row of the output to the source that it is from.
    template <class Table, class Row>
    bool addOutput(const TableFiles& table, const Quil::String& type, std::vector<Row> SourceContents::*rows,
                   L2Rib::Source (*sourceOf)(const typename Table::Record&),
                   const Row& (Table::Record::*rowOf)() const) {
        if (type != Table::fwkTypeName) return false;
        for (const auto& record : mount<Table>(table, Table::fwkCollection)->records()) {
            SourceContents& source = sources_[Apps::sourceName(sourceOf(record))];
            source.source = sourceOf(record);
            (source.*rows).push_back((record.*rowOf)());
        }
        for (auto& [name, source] : sources_) sort(source.*rows);
        return true;
    }
    template <class Row>
    static void sort(std::vector<Row>& rows) {
        std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.key() < b.key(); });
    }

    Quil::EventLoop loop_;
    Corestore::EntityManager em_;
    bool hasAgent_ = false;
    std::map<Quil::String, Quil::Ptr<L2Rib::SourceDirEntry>> known_;  // by directory
    std::map<Quil::String, SourceContents> sources_;                  // by directory, or by source
};

// A line for each row, so that two dumps can be compared line by line.
void print(const Apps::Json& all) {
    std::cout << "{\"schema\":" << all["schema"] << ",\"sources\":[";
    const char* nextSource = "\n";
    for (const auto& source : all["sources"]) {
        std::cout << std::exchange(nextSource, ",\n") << "{";
        const char* nextKey = "";
        for (const auto& [key, value] : source.items()) {
            std::cout << std::exchange(nextKey, ",\n ") << '"' << key << "\":";
            if (!value.is_array()) {
                std::cout << Apps::textOf(value);
                continue;
            }
            const char* nextRow = "[\n  ";
            for (const auto& row : value) std::cout << std::exchange(nextRow, ",\n  ") << Apps::textOf(row);
            std::cout << "]";
        }
        std::cout << "}";
    }
    std::cout << "\n]}\n";
}

}  // namespace

int tableDump(const Options& options) {
    Dump dump(options.root);
    const std::vector<std::string> inputs{Agent::Places::inputs};
    const bool isAll = options.words.empty();  // of the sources that are there
    for (const TableFiles& table : findTables(options.root, isAll ? inputs : options.words)) {
        if (!isAll || dump.isAnnounced(table)) dump.add(table);
    }
    const auto names = Apps::InterfaceNames::readFrom(options.root);
    print(Apps::jsonOf(std::move(dump).contents(), names));
    flushOutput();
    return exitFound;
}

}  // namespace Tool

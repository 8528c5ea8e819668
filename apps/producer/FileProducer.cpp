// The producer of what a file says: an array of forwarding entries (bridge -j fdb show), or sources in the format of
// SourceJson.h. It follows the file: a change of it is one change for each row that differs.
#include <sys/stat.h>

#include <cmath>
#include <filesystem>

#include "Mem/InotifyWatcher.h"
#include "common/JsonFile.h"
#include "common/SourceJson.h"
#include "fdb/JsonFdb.h"
#include "producer/Producer.h"
#include "producer/SourceSet.h"

namespace Producer {
namespace {

namespace fs = std::filesystem;
using Apps::Json;

// "lab.json" is the name "lab"; bytes that no name has become hyphens.
Quil::Name nameOf(const fs::path& path) {
    Quil::Name name = path.stem().string();
    for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '.') c = '-';
    }
    name = name.substr(0, 40);  // a source's name comes behind it
    return name.empty() || name[0] == '.' ? "file" : name;
}

// What a file's rows are turned into; each kind of file has one.
class Rows {
 public:
    virtual ~Rows() = default;
    // onNames is called when the interfaces' names are known, before anything that refers to them is published.
    virtual void fill(const Json& json, const std::function<void()>& onNames) = 0;
    virtual void withdraw() = 0;
    virtual Fdb::Statistics statistics() const { return {}; }
};

class FdbRows : public Rows {
 public:
    FdbRows(Corestore::EntityManager& em, const Quil::Name& name, const Options& options, Apps::InterfaceNames& names,
            const Report& report)
        : report_(report),
          sources_(em, name, options.maxHosts),
          model_(options.settings(), em.loop().clock(), sources_),
          loader_({options.vxlans.begin(), options.vxlans.end()}, model_, names) {}
    void fill(const Json& json, const std::function<void()>& onNames) override {
        if (!json.is_array()) throw Quil::RangeException("is not an array of forwarding entries any more");
        model_.dumpBegins();
        loader_.loadLinks(json);
        onNames();
        loader_.loadEntries(json, report_);
        model_.dumpEnds();
        sources_.fillEnds();
    }
    void withdraw() override { sources_.withdraw(); }
    Fdb::Statistics statistics() const override { return model_.statistics(); }

 private:
    const Report& report_;
    SourceSet sources_;
    Fdb::Model model_;
    Fdb::JsonFdb loader_;
};

class SourceRows : public Rows {
 public:
    SourceRows(Corestore::EntityManager& em, Quil::Name name, std::uint32_t maxHosts, Apps::InterfaceNames& names)
        : em_(em), name_(std::move(name)), maxHosts_(maxHosts), names_(names) {}

    // A file that is malformed anywhere changes nothing.
    void fill(const Json& json, const std::function<void()>& onNames) override {
        auto all = Apps::sourcesOf(json, names_);
        onNames();
        std::set<Quil::Name> present;
        for (auto& contents : all) {
            if (contents.name.empty()) contents.name = Quil::cat(name_, "-", Apps::sourceName(contents.source));
            AnnouncedSource::checkName(contents.name);
            if (!present.insert(contents.name).second) throw Quil::RangeException("is given twice", contents.name);
        }
        for (const auto& contents : all) fill(contents);
        for (auto at = sources_.begin(); at != sources_.end();) {
            const bool gone = !present.contains(at->first);
            if (gone) at->second.withdraw();
            at = gone ? sources_.erase(at) : std::next(at);
        }
    }
    void withdraw() override {
        for (auto& [name, source] : sources_) source.withdraw();
    }

 private:
    void fill(const Apps::SourceContents& contents) {
        AnnouncedSource& source =
            sources_.try_emplace(contents.name, em_, contents.name, contents.source, maxHosts_).first->second;
        source.fillBegins();
        for (const auto& row : contents.dests) source.dests().put(row);
        for (const auto& row : contents.labels) source.labels().put(row);
        for (const auto& row : contents.loadBalances) source.loadBalances().put(row);
        for (const auto& row : contents.hosts) {
            std::isnan(row.lastMoveTime()) ? source.hostIs(row) : source.hosts().put(row);
        }
        fillFloodSets(source.entry(), contents);
        source.fillEnds();
    }
    // As they are to be, in an entry of its own; then only what differs is changed.
    static void fillFloodSets(const Quil::Ptr<L2Rib::SourceDirEntry>& entry, const Apps::SourceContents& contents) {
        const auto wanted = L2Rib::sourceDirEntryFactory(entry->name());
        wanted->SourceDirEntryIs(*entry);
        wanted->vlanFloodSetDelAll();
        wanted->sourceIs(contents.source);
        for (const auto& row : contents.floodSets) {
            const auto set = wanted->vlanFloodSetIs(row.vlanId)->floodSetIs(row.mac);
            set->floodSetTypeIs(row.type);
            for (const auto& dest : row.dests) set->destSetIs(dest, true);
        }
        entry->SourceDirEntryIs(*wanted);
    }

    Corestore::EntityManager& em_;
    const Quil::Name name_;
    const std::uint32_t maxHosts_;
    Apps::InterfaceNames& names_;
    std::map<Quil::Name, AnnouncedSource> sources_;
};

class FileProducer : public Producer {
 public:
    FileProducer(Corestore::EntityManager& em, const Options& options, const std::string& path, Report report)
        : root_(em.root()),
          path_(path),
          name_(options.name.empty() ? nameOf(path) : options.name),
          lock_(root_, name_),
          report_(std::move(report)),
          watcher_(
              em.loop(), fs::absolute(path).parent_path().string(), [this] { follow(); },
              Mem::InotifyWatcher::written) {
        options.settings();  // whatever the file holds, they must be right
        atFile([&] {
            stamp_ = stampOf();
            const Json json = Apps::readJson(path_);
            if (json.is_array()) {
                rows_ = std::make_unique<FdbRows>(em, name_, options, names_, report_);
            } else if (json.is_object()) {
                rows_ = std::make_unique<SourceRows>(em, name_, options.maxHosts, names_);
            } else {
                throw Quil::RangeException("is neither a JSON array of forwarding entries nor an object with sources");
            }
            fill(json);
        });
        if (!watcher_.active()) report_(path_ + ": is not followed: its directory cannot be watched");
    }
    void withdraw() override { rows_->withdraw(); }
    Quil::String summary() const override { return summaryOf(rows_->statistics()); }

 private:
    void fill(const Json& json) {
        rows_->fill(json, [this] { names_.writeTo(root_, name_); });
    }
    // Whatever is wrong with the file is told with its path before it.
    template <class F>
    void atFile(F&& read) const {
        try {
            read();
        } catch (const Quil::RangeException& error) {
            throw Quil::RangeException(error.what(), path_);
        }
    }
    // Something in the directory was written; what was told stands until the file says otherwise.
    void follow() {
        const Stamp stamp = stampOf();  // before it is read: what is written meanwhile is another change
        if (std::exchange(stamp_, stamp) == stamp) return;
        try {
            atFile([&] { fill(Apps::readJson(path_)); });
        } catch (const std::exception& error) {
            report_(error.what());
        }
    }
    using Stamp = std::tuple<dev_t, ino_t, off_t, time_t, long>;
    Stamp stampOf() const {
        struct stat now {};
        if (stat(path_.c_str(), &now) != 0) return {};
        return {now.st_dev, now.st_ino, now.st_size, now.st_mtim.tv_sec, now.st_mtim.tv_nsec};
    }

    const Quil::String root_;
    const std::string path_;
    const Quil::Name name_;
    const NameLock lock_;
    const Report report_;
    Apps::InterfaceNames names_;
    std::unique_ptr<Rows> rows_;
    Stamp stamp_;
    Mem::InotifyWatcher watcher_;
};

}  // namespace

std::unique_ptr<Producer> fileProducer(Corestore::EntityManager& em, const Options& options, const std::string& path,
                                       Report report) {
    return std::make_unique<FileProducer>(em, options, path, std::move(report));
}

}  // namespace Producer

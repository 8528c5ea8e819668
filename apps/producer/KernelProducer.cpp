// The producer of this network namespace's bridges and VXLAN devices.
#include "common/Names.h"
#include "fdb/NetlinkFdb.h"
#include "producer/Producer.h"
#include "producer/SourceSet.h"

namespace Producer {
namespace {

class KernelProducer : public Producer {
 public:
    KernelProducer(Corestore::EntityManager& em, const Options& options)
        : root_(em.root()),
          name_(options.name.empty() ? "kernel" : options.name),
          lock_(root_, name_),
          sources_(em, name_, options.maxHosts),
          model_(options.settings(), em.loop().clock(), sources_),
          kernel_(
              em.loop(), model_, [this] { publishInterfaces(); }, [this] { sources_.fillEnds(); }) {}
    void withdraw() override { sources_.withdraw(); }
    Quil::String summary() const override {
        return Quil::cat(summaryOf(model_.statistics()), "; resynchronised ", kernel_.resyncs().value(), " times");
    }

 private:
    void publishInterfaces() {
        std::set<std::uint32_t> present;
        for (const auto& [index, link] : model_.links()) {
            names_.nameIs(index, link.name);
            present.insert(index);
        }
        for (const std::uint32_t index : known_) {
            if (!present.contains(index)) names_.nameIs(index, "");
        }
        known_ = std::move(present);
        names_.writeTo(root_, name_);
    }

    const Quil::String root_;
    const Quil::Name name_;
    const NameLock lock_;
    Apps::InterfaceNames names_;
    std::set<std::uint32_t> known_;  // interface indices in the names file
    SourceSet sources_;
    Fdb::Model model_;
    Fdb::NetlinkFdb kernel_;
};

}  // namespace

std::unique_ptr<Producer> kernelProducer(Corestore::EntityManager& em, const Options& options) {
    if (!options.vxlans.empty()) throw Quil::RangeException("is for files only", "--vxlan");
    return std::make_unique<KernelProducer>(em, options);
}

}  // namespace Producer

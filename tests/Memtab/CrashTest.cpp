// Every store to shared memory and every file operation of a writer is a point at which it may die: what it leaves is
// taken up again as it was before or after the operation under way, or refused as a whole.
#include <filesystem>
#include <map>

#include "Memtab/TableFixture.h"

namespace {

using namespace test;
namespace fs = std::filesystem;

using Model = std::map<std::uint32_t, std::uint32_t>;  // generation by number

template <class OpsType>
class CrashPoints : public Mem::Observer {
 public:
    CrashPoints() { Mem::observer = this; }
    ~CrashPoints() override { Mem::observer = nullptr; }

    // Runs one step of the script, which takes the table from one state to the other.
    void step(const Model& before, const Model& after, const std::function<void()>& run) {
        before_ = before;
        after_ = after;
        run();
    }
    TestTable<OpsType> table{options()};
    unsigned images = 0, kept = 0, refused = 0;

 private:
    static Memtab::Options options() {
        Memtab::Options o = sized(64, 4);
        o.shrinkSlots = o.shrinkBuckets = true;
        return o;
    }
    void onStore(const void*, std::size_t) override { look(); }
    int onFile(const char*, const char*) override {
        look();
        return 0;
    }

    void look() {
        if (++points_ % every_ != 0) return;
        Mem::observer = nullptr;
        examine();
        Mem::observer = this;
    }

    // A copy of the files as they lie now, in the hands of another writer and another reader.
    void examine() {
        ++images;
        for (const char* name : {"slots", "buckets", "conquer.1", "conquer.2"}) {
            std::error_code ignored;
            fs::copy_file(table.file(name), image_.path() + "/" + name, fs::copy_options::overwrite_existing, ignored);
        }
        Mem::SharedDirectory directory(image_.path());
        readImage(directory);
        typename TestTable<OpsType>::Writer writer(table.debug, "image", table.options, table.stored);
        if (!writer.attachExisting(directory, 0x1234)) {
            ++refused;
            return;
        }
        ++kept;
        Quil::String reason;
        ASSERT_TRUE(writer.validate(directory, 0, reason)) << reason;
        Model found;
        Item item;
        Memtab::WriterIterHint hint;
        for (bool more = writer.first(item, hint); more; more = writer.next(item.key, item, hint)) {
            ASSERT_TRUE(item.isWhole());
            found[item.key.number] = item.generation;
        }
        ASSERT_TRUE(found == before_ || found == after_);
        // And it works on.
        writer.write(Item(1000, 1), true);
        ASSERT_TRUE(writer.remove(NumberKey{1000}));
        ASSERT_TRUE(writer.validate(directory, 0, reason)) << reason;
    }

    void readImage(Mem::Directory& directory) {
        typename TestTable<OpsType>::Reader reader(table.debug);
        Quil::String reason;
        if (!reader.attach(directory, 0x1234, table.stored, reason)) return;
        try {
            for (std::uint32_t n = 0; n < 32; ++n) {
                bool found = false;
                const Item item = reader.lookup(NumberKey{n}, found);
                ASSERT_TRUE(!found || (item.isWhole() && item.key.number == n));
            }
        } catch (const Verro::CorruptionDetectedException&) {
        }
    }

    const unsigned every_ = scale() < 1 ? 7 : 1;  // on a sample in slow builds
    std::uint64_t points_ = 0;
    Model before_, after_;
    ScratchDir image_;
};

template <class OpsType>
void everyPointIsACrashPoint() {
    CrashPoints<OpsType> crash;
    Model model;
    const auto change = [&](std::uint32_t n, std::uint32_t generation) {
        Model after = model;
        generation ? void(after[n] = generation) : void(after.erase(n));
        crash.step(model, after, [&] {
            if (generation) {
                crash.table.writer->write(Item(n, generation), true);
            } else {
                crash.table.writer->remove(NumberKey{n});
            }
        });
        model = after;
    };
    // Growth and doubling, rewrites with compactions, shrinks with moves and halving, restarts, and growth again.
    for (std::uint32_t n = 0; n < 24; ++n) change(n, 1);
    for (std::uint32_t n = 0; n < 24; n += 2) change(n, 2);
    for (std::uint32_t n = 0; n < 20; ++n) change(n, 0);
    crash.step(model, model, [&] { ASSERT_TRUE(crash.table.restart()); });
    for (std::uint32_t n = 0; n < 12; ++n) change(n, 3);
    for (std::uint32_t n = 0; n < 12; ++n) change(n, 0);
    crash.step(model, {}, [&] { crash.table.writer->attach(crash.table.directory, 0x1234); });  // formatted anew
    EXPECT_GT(crash.kept, crash.images / 10);
    EXPECT_GT(crash.refused, crash.images / 10);
    std::cout << "  " << crash.images << " images: " << crash.kept << " kept, " << crash.refused << " refused\n";
}

TEST(CrashPoints, AreSurvivedWithAGoodHash) { everyPointIsACrashPoint<GoodOps>(); }
TEST(CrashPoints, AreSurvivedInOneChain) { everyPointIsACrashPoint<ConstantOps>(); }

}  // namespace

// MemtabMap: one table as its owner sees it, whatever stands behind it: private memory, the files of a table that this
// process writes, or those of a table it reads.
//
// Modes     local (from the start; private), writer, reader, shadow (a reader that keeps a copy: MemtabShadow.h).
// Owner     The table entity that embeds it.
// Threads   Event-loop thread.
// Files     <$Q7_CHROOT><root>/<name>/: slots, buckets, conquer.1, conquer.2, fenix, kick.
#pragma once

#include <cstdlib>
#include <functional>

#include "Mem/Local.h"
#include "Mem/Shared.h"
#include "Memtab/Exception.h"
#include "Memtab/Follower.h"
#include "Memtab/MemtabShadow.h"
#include "Memtab/MemtabWriter.h"
#include "Memtab/ReaderSm.h"
#include "Memtab/Util.h"

namespace Memtab {

enum class Mode { local, writer, reader, shadow };

// Where a table is mounted.
struct MountPoint {
    Quil::EventLoop& loop;
    Quil::String root;        // "/dev/shm/l2rib"
    Quil::String readerName;  // how the writer's tools list this reader
};

// What the owner is told. Each is called on the event loop, after the change is visible.
template <class Key>
struct Hooks {
    std::function<void(const Key&)> onKey;  // reading side: the entry of this key appeared, changed or went
    std::function<void()> onCollection;     // reading side: the whole table may have changed
    std::function<void()> onMountStatus;
    std::function<void(const Quil::String&)> onCorruption;      // may be empty
    std::function<Quil::Ptr<const Quil::Counted>()> keepAlive;  // the owner, held while callbacks run
};

template <class Key, class Value, class OpsType>
class MemtabMap : ReaderSm::Front {
 public:
    using Writer = MemtabWriter<Key, Value, OpsType>;
    using Reader = MemtabReader<Key, Value, OpsType>;
    // Where a walk stands, for whichever of the two walks.
    struct IterHint {
        WriterIterHint writer;
        ReaderIterHint reader;
    };

    explicit MemtabMap(SlotTable::Format stored) : stored_(std::move(stored)) {
        static const Value defaultValue{};
        stored_.valueSize = sizeof(Value);
        stored_.defaultValue = &defaultValue;
    }
    ~MemtabMap() override { attached_.reset(); }  // while still connected

    const Quil::String& name() const { return name_; }
    Mode mode() const { return mode_; }
    const Quil::String& directory() const { return directory_; }  // of a mounted table
    bool mounted() const {
        return (mode_ == Mode::writer && writer_) || (readerSm_ && readerSm_->state() == ReaderSm::State::mounted);
    }
    // There is a table to read: the own one, or files of a writer, be it gone.
    bool isReadable() const { return isOwn(mode_) || attached_; }
    // Of the mounted reader; detached when this map is none.
    ReaderSm::State readerState() const { return readerSm_ ? readerSm_->state() : ReaderSm::State::detached; }
    // The caller, for all who follow the table, walks through what it holds now: of that they are not told, only of
    // what changes after this.
    void presentIsKnown() {
        if (attached_) follower_.unmark();
    }
    std::uint64_t corruptions() const { return corruptions_; }

    // Private memory under the present name: usable at once, seen by nobody else.
    void createDefaultLocalWriter() {
        Options options;
        options.initialSlots = 64;
        becomes(Mode::local);
        localDirectory_ = std::make_unique<Mem::LocalDirectory>(name_);
        writer_ = std::make_unique<Writer>(debug(), name_, options, stored_);
        writer_->attach(*localDirectory_, 1);
    }

    // Takes the place of what stood here before, local entries included.
    // Throws InvalidInitializeException when another process writes the table.
    void mount(Mode mode, const Options& options, const MountPoint& point) {
        if (inTurn_)
            throw Quil::AssertionException(Quil::cat("MemtabMap::mount() ", name_, " inside its own notification"));
        const Quil::String directory = Mem::pathUnder(point.root, name_);
        switch (mode) {
            case Mode::writer:
                return mountWriter(options, point, directory);
            case Mode::reader:
            case Mode::shadow:
                return mountReader(mode, options, point, directory);
            case Mode::local:
                return createDefaultLocalWriter();
        }
        throw Verro::InvalidInitializeException(Quil::cat("MemtabMap::mount() ", name_, " mode not supported"));
    }

    // Lets go of files and mappings. The files stay, for readers and for the next writer. A notification may call this.
    void detach() {
        if (!inTurn_) attached_.reset();
        dropWriter();
        if (readerSm_) {
            readerSm_->detach();  // tells the owner
        } else {
            hooks_.onMountStatus();
        }
    }

    // What becomes of a table whose owner left the tree; a derived map may do more.
    virtual void controlDetach() { detach(); }

    // Whether the files of this table under the root are sound and of this table's type; traces what is wrong.
    bool validateFiles(const Quil::String& root, unsigned /*flags*/) {
        Mem::SharedDirectory directory(Mem::pathUnder(root, name_));
        Quil::String reason;
        if (mode_ == Mode::writer && writer_) return writer_->validateFiles(directory, reason);
        return Validator(debug(), name_).validate(directory, 0, &stored_, reason);
    }
    // Whether the table that this process writes hangs together, in memory and in its files.
    bool validate(Quil::String& reason) {
        Writer& own = writer("MemtabMap::validate()");
        Mem::Directory& directory =
            writerMount_ ? static_cast<Mem::Directory&>(writerMount_->directory) : *localDirectory_;
        return own.validate(directory, 0, reason);
    }

    // Insert or replace; remove. Corruption is reported to the hook and raised as an assertion exception.
    void safeWrite(const Value& value) {
        guarded("MemtabMap::safeWrite()", [&] { writer("MemtabMap::safeWrite()").write(value, true); });
    }
    bool safeRemove(const Key& key, Value& removed) {
        bool found = false;
        guarded("MemtabMap::safeRemove()", [&] { found = writer("MemtabMap::safeRemove()").remove(key, &removed); });
        return found;
    }

    // In place: directWrite() hands out the value of the key to be filled in, directUpdate() only that of an entry
    // which is there (else null), directCommit() writes it. Nothing else may be written or removed between. See
    // MemtabWriter.h.
    Value* directWrite(const Key& key) {
        return guarded("MemtabMap::directWrite()", [&] { return writer("MemtabMap::directWrite()").directWrite(key); });
    }
    Value* directUpdate(const Key& key) {
        return guarded("MemtabMap::directUpdate()",
                       [&] { return writer("MemtabMap::directUpdate()").directUpdate(key); });
    }
    void directCommit() {
        guarded("MemtabMap::directCommit()", [&] { writer("MemtabMap::directCommit()").directCommit(); });
    }

    // The entry of the key; false leaves the default value. Corruption counts as absent.
    bool lookup(const Key& key, Value& out) {
        bool found = false;
        const bool good = answering([&] {
            if (shadow_) {
                found = attached_ && shadow_->lookup(attached_->reader, key, out);
            } else if (attached_) {
                attached_->reader.lookup(key, found, &out);
                if (found) follower_.saw(attached_->reader.lastSlot(), key);
            } else {
                found = writer_ && writer_->lookup(key, out);
            }
        });
        if (!good) found = false;
        if (!found) out = Value();
        return found;
    }

    // Walks in the table's order. Corruption ends the walk.
    bool first(Value& out, IterHint& hint) {
        return walk(out, hint, [&] {
            if (shadow_) return attached_ && shadow_->first(attached_->reader, out);
            return attached_ ? attached_->reader.first(out, hint.reader) : writer_ && writer_->first(out, hint.writer);
        });
    }
    bool next(const Key& key, Value& out, IterHint& hint) {
        return walk(out, hint, [&] {
            if (shadow_) return attached_ && shadow_->next(attached_->reader, key, out);
            return attached_ ? attached_->reader.next(key, out, hint.reader)
                             : writer_ && writer_->next(key, out, hint.writer);
        });
    }

    // Of the last change: written here, or read and delivered.
    std::uint64_t sequence() const {
        return attached_ ? attached_->queue.sequence() : writer_ ? writer_->sequence() : 0;
    }
    // Null when the table is mounted for reading, or detached.
    Writer* localWriter() { return writer_.get(); }
    // Null unless files of a writer are mapped for reading.
    const Reader* reader() const { return attached_ ? &attached_->reader : nullptr; }

    // Counts it, traces it, leaves a record in the table's directory once per incarnation, and tells the owner.
    void corruptionDetected(const Quil::String& message) {
        ++corruptions_;
        debug().log(1, [&] { return Quil::cat("MemtabMap::corruptionDetected() ", name_, ": ", message); });
        if (!directory_.empty() && recordedFor_ != incarnation_) {
            recordedFor_ = incarnation_;
            Util::writeCorruptionFile(directory_, name_, message);
        }
        // What cannot be trusted is not left for readers and the next start. Those who have it mapped keep it.
        if (mode_ == Mode::writer && writer_) writer_->cleanup(writerMount_->directory, "corruption-detected");
        if (hooks_.onCorruption) hooks_.onCorruption(message);
    }

 protected:
    void nameIs(const Quil::String& name) { name_ = name; }
    void debugIs(Quil::Trace& debug) { debug_ = &debug; }
    void hooksAre(Hooks<Key> hooks) { hooks_ = std::move(hooks); }
    Quil::Trace& debug() const { return *debug_; }

 private:
    static constexpr std::size_t keysPerTurn = 1024;

    struct WriterMount {
        Mem::SharedDirectory directory;
        SharedMem::FenixFile fenix;
        std::unique_ptr<Mem::WriterKickSm> kickSm;
        explicit WriterMount(const Quil::String& path) : directory(path), fenix(path) {}
    };
    using Shadow = MemtabShadow<Key, Value, OpsType>;
    struct Attached {
        Reader reader;
        ConquerReader queue;
        const FenixId fenix;
        bool isDamaged = false;  // and someone was told that it lacks what it holds
        Attached(Quil::Trace& debug, FenixId incarnation) : reader(debug), fenix(incarnation) {}
    };

    struct InTurn {
        bool& flag;
        explicit InTurn(bool& f) : flag(f) { flag = true; }
        ~InTurn() { flag = false; }
        InTurn(const InTurn&) = delete;
        InTurn& operator=(const InTurn&) = delete;
    };

    // Drops whatever stood behind the map before.
    void becomes(Mode mode) {
        attached_.reset();  // while still connected
        readerSm_.reset();
        shadow_.reset();
        dropWriter();
        localDirectory_.reset();
        directory_.clear();
        recordedFor_ = 0;
        mode_ = mode;
    }

    void dropWriter() {
        if (writer_) writer_->kickSmIs(nullptr);
        writerMount_.reset();
        if (writer_) writer_->detach();
        writer_.reset();
    }

    void mountWriter(const Options& options, const MountPoint& point, const Quil::String& directory) {
        auto mount = std::make_unique<WriterMount>(directory);
        auto writer = std::make_unique<Writer>(debug(), name_, options, stored_);
        // First, since it may fail. Who connects meanwhile finds the old incarnation or the new one.
        mount->kickSm = std::make_unique<Mem::WriterKickSm>(point.loop, directory, options.kickReaders, *writer);
        const FenixId before = mount->fenix.id();
        if (options.keepOverRestart && before != 0 && writer->attachExisting(mount->directory, before)) {
            mount->fenix.write(before);  // the same incarnation, in a new process
        } else {
            startAfresh(*mount, *writer);
        }
        mount->kickSm->fenixIs(mount->fenix.id());
        writer->kickSmIs(mount->kickSm.get());
        becomes(Mode::writer);
        incarnation_ = mount->fenix.id();
        directory_ = directory;
        writer_ = std::move(writer);
        writerMount_ = std::move(mount);
        hooks_.onMountStatus();
    }

    void startAfresh(WriterMount& mount, Writer& writer) {
        const FenixId before = mount.fenix.id();
        mount.fenix.write();  // before any file of the new incarnation
        try {
            writer.attach(mount.directory, mount.fenix.id());
        } catch (...) {
            if (before != 0) mount.fenix.write(before);  // what stood here before can still be read
            throw;
        }
    }

    static constexpr bool isOwn(Mode mode) { return mode == Mode::local || mode == Mode::writer; }

    void mountReader(Mode mode, const Options& options, const MountPoint& point, const Quil::String& directory) {
        becomes(mode);
        if (mode == Mode::shadow) shadow_ = std::make_unique<Shadow>(options.shadowValues);
        directory_ = directory;
        readerSm_ = std::make_unique<ReaderSm>(debug(), point.loop, directory, point.readerName,
                                               static_cast<ReaderSm::Front&>(*this));
        readerSm_->start();
    }

    Writer& writer(const char* operation) {
        if (!writer_) {
            throw Quil::AssertionException(
                Quil::cat(operation, " ", name_, !isOwn(mode_) ? " is mounted read-only" : " is detached"));
        }
        return *writer_;
    }

    template <class F>
    auto guarded(const char* operation, F&& run) {
        try {
            return run();
        } catch (const Verro::CorruptionDetectedException& error) {
            corruptionDetected(error.what());
            throw Quil::AssertionException(Quil::cat(operation, " in no man's land"));
        }
    }
    // False when the table is damaged. What else goes wrong passes through.
    template <class F>
    bool reading(F&& run) {
        try {
            run();
            return true;
        } catch (const Verro::CorruptionDetectedException& error) {
            corruptionDetected(error.what());
        }
        return false;
    }
    // The same for what the owner asks, who is told that nothing is there.
    template <class F>
    bool answering(F&& run) {
        if (reading(run)) return true;
        if (attached_) attached_->isDamaged = true;
        return false;
    }
    // The same for the table's own work, to be tried again: also false when its files are not to be mapped.
    template <class F>
    bool trying(F&& run) {
        try {
            return reading(run);
        } catch (const Quil::SystemException& error) {
            debug().log(1, [&] { return Quil::cat("MemtabMap::trying() ", name_, ": ", error.what()); });
        } catch (const Quil::MemoryResourceException& error) {
            debug().log(1, [&] { return Quil::cat("MemtabMap::trying() ", name_, ": ", error.what()); });
        }
        return false;
    }

    template <class F>
    bool walk(const Value& out, const IterHint& hint, F&& step) {
        bool found = false;
        if (!answering([&] { found = step(); })) return false;
        if (found && attached_ && !shadow_) follower_.saw(hint.reader.slot, out.fwkKey());
        return found;
    }

    bool attachFiles(FenixId fenix, Quil::String& reason) override {
        Mem::SharedDirectory directory(directory_);
        incarnation_ = fenix;
        auto fresh = std::make_unique<Attached>(debug(), fenix);
        if (!fresh->reader.attach(directory, fenix, stored_, reason) ||
            !fresh->queue.attach(debug(), directory, fenix, reason)) {
            return false;
        }
        Reader* const before = attached_ && !attached_->isDamaged ? &attached_->reader : nullptr;
        const bool good = trying([&] { follower_.resynchronise(before, fresh->reader, fresh->queue); });
        if (!good) {
            reason = "corruption detected";
            return false;
        }
        isNewCollection_ = isNewCollection_ || !attached_ || attached_->fenix != fenix;
        attached_ = std::move(fresh);
        return true;
    }

    ReaderSm::Turn turn() override {
        struct Unmap {  // when a callback has let go of the table, be it by an exception; while still connected
            MemtabMap& map;
            ~Unmap() {
                if (!map.isFollowing()) map.attached_.reset();
            }
        } unmap{*this};
        const InTurn inTurn(inTurn_);
        ReaderSm::Turn result = ReaderSm::Turn::drained;
        if (std::exchange(isNewCollection_, false)) hooks_.onCollection();
        if (isFollowing()) result = collect();
        return result;
    }

    ReaderSm::Turn collect() {
        bool more = false;
        if (!trying([&] { more = follower_.collect(attached_->reader, attached_->queue, keysPerTurn); })) {
            return ReaderSm::Turn::failed;
        }
        if (!deliver()) return ReaderSm::Turn::failed;
        return more || follower_.hasMarked() ? ReaderSm::Turn::more : ReaderSm::Turn::drained;
    }

    // Whether the owner still wants to be told; any callback may have ended that.
    bool isFollowing() const { return readerSm_->state() != ReaderSm::State::detached; }

    // Tells the owner of at most so many keys of each kind. What a callback throws passes through; its key counts as
    // delivered. False when the table could not be read.
    bool deliver() {
        return deliver([&] { return follower_.takeChanged(); }) && deliver([&] { return follower_.takeGone(); });
    }
    template <class Take>
    bool deliver(Take&& take) {
        for (std::size_t i = 0; i < keysPerTurn && isFollowing(); ++i) {
            const auto key = take();
            if (!key) return true;
            if (shadow_ && !trying([&] { syncShadow(*key); })) {
                follower_.putBack(*key);
                return false;
            }
            hooks_.onKey(*key);
        }
        return true;
    }

    void syncShadow(const Key& key) {
        const std::uint32_t slot = typename Shadow::Syncer(*shadow_).sync(attached_->reader, key);
        if (slot != endOfList) follower_.saw(slot, key);
    }

    Mem::KickAck acknowledgement() const override {
        Mem::KickAck ack;
        ack.sequence = attached_->queue.sequence();
        ack.slotCounter = attached_->reader.slotCounter();
        ack.bucketCounter = attached_->reader.bucketCounter();
        return ack;
    }

    void onState() override { hooks_.onMountStatus(); }
    Quil::Ptr<const Quil::Counted> keepAlive() const override { return hooks_.keepAlive(); }

    SlotTable::Format stored_;
    Quil::String name_;
    Quil::Trace* debug_ = nullptr;
    Hooks<Key> hooks_;
    Mode mode_ = Mode::local;
    Quil::String directory_;  // of a mounted table
    std::uint64_t corruptions_ = 0;
    FenixId incarnation_ = 0;  // of the mounted files
    FenixId recordedFor_ = 0;  // the incarnation whose corruption is on file
    bool inTurn_ = false;      // a callback of the reader's turn may be running

    std::unique_ptr<Mem::LocalDirectory> localDirectory_;  // local
    std::unique_ptr<Writer> writer_;                       // local and writer
    std::unique_ptr<WriterMount> writerMount_;             // writer; goes before what it watches
    std::unique_ptr<Attached> attached_;                   // reader
    bool isNewCollection_ = false;                         // reader; nobody has been told of this incarnation yet
    std::unique_ptr<Shadow> shadow_;                       // shadow
    Follower<Key, Value, OpsType> follower_;               // reader
    std::unique_ptr<ReaderSm> readerSm_;                   // reader
};

}  // namespace Memtab

// MemtabWriter: the one writer of a table: writes, removes and walks entries, and announces every change.
//
// Owner     One map front. Exactly one writer exists per table; readers in other processes look on without locks.
// Threads   Event-loop thread.
// Lifetime  A returned reference to a value in a slot is good until the next call that may change the table.
// Errors    TableFullException and MemoryResourceException leave the table as it was, with nothing announced;
//           AssertionException for misuse of the direct mode; CorruptionDetectedException means that the table's memory
//           does not hang together.
//
// Publication of an entry (mirror: MemtabReader.h)
//   insert   own link, value and state, then the link of the predecessor, which makes it visible
//   rewrite  spare slot, LOOKASIDE, value, LOOKASIDE off
//   remove   link of the predecessor, OCCUPIED off, own link (free list)
//   move     the copy as in insert, the link that led to the old place, then OCCUPIED off there
//
// Direct mode: directWrite(key) hands out a value to be filled in, directCommit() writes it. The value is private
// memory: nothing half-written is ever seen, nor left by a crash of the caller.
#pragma once

#include <optional>

#include "Memtab/ConquerWriter.h"
#include "Memtab/Validator.h"
#include "Memtab/WriterHashMap.h"

namespace Memtab {

// Where a walk of the writer stands: good for a step without a search while no entry came, went or moved.
struct WriterIterHint {
    std::uint64_t version = 0;
    std::uint32_t slot = endOfList;
    std::uint32_t bucket = 0;
    Quil::String str() const {
        return Quil::cat("IterHint{ version ", version, ", slot ", slot, ", bucket ", bucket, " }");
    }
};

template <class Key, class Value, class OpsType>
class MemtabWriter : public Mem::WriterKickSm::Handler {
    static_assert(std::is_trivially_copyable_v<Value> && sizeof(Value) % 4 == 0);

 public:
    using IterHint = WriterIterHint;

    MemtabWriter(Quil::Trace& debug, Quil::String name, const Options& options, SlotTable::Format stored)
        : debug_(debug),
          name_(std::move(name)),
          options_(options),
          slots_(debug, name_, options, std::move(stored)),
          map_(debug, slots_),
          conquer_(debug, options) {}

    // Makes all files of the table afresh, for this incarnation, and puts them in place.
    void attach(Mem::Directory& directory, FenixId fenix) {
        if (!Mem::Atomics::supported()) {
            throw Verro::InvalidInitializeException("MemtabWriter::attach() Hardware does not support Atomics");
        }
        fenix_ = fenix;
        try {
            slots_.create(directory, fenix);
            map_.create(directory, options_.firstBuckets(), fenix);
            conquer_.create(directory, fenix, options_.firstSlots());
            directory.publish(SlotWriterTable::fileName);
            directory.publish(BucketWriterTable::fileName);
            conquer_.publish(directory);
        } catch (...) {
            for (const char* file : {SlotWriterTable::fileName, BucketWriterTable::fileName}) directory.withdraw(file);
            for (const char* file : ConquerTable::fileNames) directory.withdraw(file);
            throw;
        }
        if (isReformatted_) {
            debug_.log(3, [] { return Quil::String("MemtabWriter::attach(): re-formatted successfully"); });
        }
        debug_.log(5, [&] { return Quil::cat("MemtabWriter::attach() success ", name_, " fenix ", Quil::hex(fenix)); });
    }

    // Goes on with the table in the files when all of it is sound and of this incarnation. Otherwise false; the caller
    // attaches afresh, with a new incarnation, and what was in the files is lost.
    bool attachExisting(Mem::Directory& directory, FenixId fenix) {
        fenix_ = fenix;
        Quil::String reason;
        if (slots_.attachExisting(directory, fenix, reason) && map_.attachExisting(directory, fenix, reason) &&
            Validator(debug_, name_).validate(directory, fenix, &slots_.format(), reason) &&
            conquer_.attachExisting(directory, fenix, slots_.numSlots(), reason) && keysAreInPlace(reason)) {
            isInherited_ = true;
            debug_.log(
                5, [&] { return Quil::cat("MemtabWriter::attach() success ", name_, " fenix ", Quil::hex(fenix)); });
            return true;
        }
        debug_.log(3, [&] { return Quil::cat("MemtabWriter::attach() failed validation ", name_, ": ", reason); });
        debug_.log(
            3, [&] { return Quil::cat("MemtabWriter::attach() failed, all entries from ", name_, " will be lost"); });
        detach();
        isReformatted_ = true;
        return false;
    }

    // Whether the table hangs together, in memory and in its files. A fenix of 0 stands for the writer's own.
    bool validate(Mem::Directory& directory, FenixId fenix, Quil::String& reason) {
        return Validator(debug_, name_).validate(directory, fenix ? fenix : fenix_, &slots_.format(), reason) &&
               conquer_.validate(reason) && keysAreInPlace(reason);
    }

    // Whether the files are sound, each by itself and together, whatever the writer's memory holds.
    bool validateFiles(Mem::Directory& directory, Quil::String& reason) {
        return conquer_.validateFile(fenix_, reason) &&
               Validator(debug_, name_).validate(directory, fenix_, &slots_.format(), reason);
    }

    // Lets go of the files without removing them.
    void detach() {
        if (direct_) debug_.log(1, [&] { return unbalanced("detach()") + directAdvice; });
        direct_.reset();
        slots_.detach();
        map_.detach();
        conquer_.detach();
    }

    // Removes the table's files.
    void cleanup(Mem::Directory& directory, const Quil::String& reason) {
        debug_.log(
            5, [&] { return Quil::cat("MemtabWriter::cleanup() removing Memtab files ", name_, " reason: ", reason); });
        for (const char* file : {SlotWriterTable::fileName, BucketWriterTable::fileName}) {
            debug_.log(5, [&] { return Quil::cat("SlotWriter::cleanup() removing file: ", file); });
            directory.remove(file);
        }
        conquer_.cleanup(directory);
    }

    // Inserts the entry or replaces the one with the same key, which stays in its slot; announces the slot unless told
    // not to (a table that nobody else sees). Returns the value in its slot.
    const Value& write(const Value& value, bool notify) {
        const Key key = value.fwkKey();
        if (direct_) [[unlikely]]
            throwUnbalanced("write()", "when writing value:", key);
        const std::uint32_t hash = OpsType::hash(key);
        if (notify) conquer_.reserve(slots_.slotsAfterAlloc());
        const auto place = map_.find(key, hash);
        std::uint32_t index = place.slot;
        if (index != Map::noSlot) {
            debug_.log(9, [&] { return writeTrace(" existing ", key, place.bucket, index); });
            if (notify) conquer_.prefetch(index);
            rewrite(slots_[index], value);
        } else {
            index = insert(place, hash, value);
            ++version_;
            debug_.log(9, [&] { return writeTrace(" new ", key, place.bucket, index); });
            map_.growBucketsIfFull();
        }
        if (notify) conquer_.notify(index);
        return *reinterpret_cast<const Value*>(slots_[index].value());
    }

    // Removes the entry, copying its last value out if asked. False when there is none.
    bool remove(const Key& key, Value* valueOut = nullptr) {
        if (direct_) [[unlikely]]
            throwUnbalanced("remove()", "when removing key:", key);
        conquer_.reserve(slots_.numSlots());
        const auto place = map_.find(key, OpsType::hash(key));
        if (place.slot == Map::noSlot) return false;
        conquer_.prefetch(place.slot);
        SlotTable::Slot& slot = slots_[place.slot];
        if (valueOut) *valueOut = map_.value(place.slot);
        // ORDER remove, with MemtabReader::examine: out of the chain before OCCUPIED goes and the link is reused.
        Mem::Versioned::load(*place.link).next(Mem::Versioned::load(slot.link).value(), linkStep).store(*place.link);
        slots_.free(place.slot);
        ++version_;
        conquer_.notify(place.slot);
        if (slots_.occupiedSlots() < slots_.shrinkThreshold() / 2) doMaybeShrinkSlots(slots_.shrinkThreshold());
        if (options_.shrinkBuckets && map_.shrinkBucketsIfEmpty(options_.firstBuckets())) shorten();
        return true;
    }

    // The value of the key for the caller to fill in, the default one for a new key; the key in it must be this one
    // when directCommit() is called. From here to there nothing else may be written or removed. Room is made now, so
    // that the commit does not fail for want of it.
    Value* directWrite(const Key& key) {
        if (direct_) throwUnbalanced("directWrite()", "when writing key:", key);
        conquer_.reserve(slots_.slotsAfterAlloc());
        const std::uint32_t hash = OpsType::hash(key), slot = map_.find(key, hash).slot;
        direct_ = Direct{key, slot != Map::noSlot ? slot : slots_.reserve()};
        directValue_ = slot != Map::noSlot ? map_.value(slot) : Value();
        return &directValue_;
    }
    // The same for an entry that is there; null when it is not.
    Value* directUpdate(const Key& key) {
        if (direct_) throwUnbalanced("directUpdate()", "when updating key:", key);
        return map_.find(key, OpsType::hash(key)).slot == Map::noSlot ? nullptr : directWrite(key);
    }
    // Writes what was handed out, and announces it.
    const Value& directCommit() {
        if (!direct_) {
            throw Quil::AssertionException(Quil::cat("MemtabWriter::directCommit() no directSlot", directAdvice));
        }
        const Key key = directValue_.fwkKey();
        if (!OpsType::equal(key, direct_->key)) throwUnbalanced("directCommit()", "when writing value:", key);
        direct_.reset();
        return write(directValue_, true);
    }

    // The writer's own table. Each returns whether there is such an entry and copies it out.
    bool lookup(const Key& key, Value& valueOut) { return take(map_.find(key, OpsType::hash(key)).slot, valueOut); }
    bool first(Value& valueOut, IterHint& hint) { return step(map_.first(), valueOut, hint); }
    // The entry that follows the key in the table's order, also when the key itself is gone.
    bool next(const Key& key, Value& valueOut, IterHint& hint) {
        if (hint.version == version_ && hint.slot < slots_.numSlots()) {
            return step(map_.firstFrom(slots_[hint.slot].link), valueOut, hint);
        }
        const auto place = map_.find(key, OpsType::hash(key));
        const Mem::Word64& link = place.slot == Map::noSlot ? *place.link : slots_[place.slot].link;
        return step(map_.firstFrom(link), valueOut, hint);
    }

    // Whether every reader, or the one of this name, has consumed all there is.
    bool quiesced() const { return conquer_.quiesced(); }
    bool clientQuiesced(const Quil::String& readerName) const { return conquer_.clientQuiesced(readerName); }

    const Quil::String& name() const { return name_; }
    FenixId fenixId() const { return fenix_; }
    std::uint32_t members() const { return slots_.occupiedSlots(); }
    std::uint32_t capacity() const { return slots_.numSlots(); }
    std::uint32_t maxSize() const { return options_.maxSize; }
    std::uint32_t minSize() const { return slots_.minSlots(); }
    std::uint32_t numBuckets() const { return map_.numBuckets(); }
    std::uint64_t sequence() const override { return conquer_.sequence(); }
    ConquerWriter& conquer() { return conquer_; }
    const SlotWriterTable::Counters& writerCounters() const { return slots_.counters(); }

    // Who reads. Null for a table that nobody else sees.
    void kickSmIs(Mem::WriterKickSm* kickSm) {
        kickSm_ = kickSm;
        conquer_.kickSmIs(kickSm);
    }

 private:
    using Map = WriterHashMap<Key, Value, OpsType>;
    struct Direct {
        Key key;
        std::uint32_t slot;
    };
    static constexpr const char* directAdvice = " - Make sure the DirectIs/Commit are properly paired!";

    bool take(std::uint32_t index, Value& valueOut) {
        if (index == Map::noSlot) return false;
        valueOut = map_.value(index);
        return true;
    }
    bool step(std::uint32_t index, Value& valueOut, IterHint& hint) {
        if (!take(index, valueOut)) return false;
        hint = {version_, index, map_.bucketOf(index)};
        debug_.log(9, [&] { return Quil::cat("MemtabWriter::next() ", hint.str()); });
        return true;
    }

    std::uint32_t insert(const typename Map::Place& place, std::uint32_t hash, const Value& value) {
        // The allocation may grow the slot file and move its mapping, and the insertion link with it.
        const Mem::AutoMemMove<Mem::Word64> link(*place.home, place.link);
        const std::uint32_t index = slots_.alloc(hash);
        SlotTable::Slot& slot = slots_[index];
        Mem::Versioned::load(slot.link).next(Mem::Versioned::load(*link).value(), linkStep).store(slot.link);
        Map::fill(slot, value);
        // ORDER insert, with MemtabReader::examine: the slot is whole before this store makes it visible.
        Mem::Versioned::load(*link).next(index, linkStep).store(*link);
        return index;
    }

    void rewrite(SlotTable::Slot& slot, const Value& value) {
        // ORDER rewrite, with MemtabReader::copyValue: the spare copy is whole before LOOKASIDE sends readers to it.
        SlotTable::Slot& spare = slots_.spare();
        Mem::Atomics::store32(spare.rhash, Mem::Atomics::load32(slot.rhash));
        Mem::Atomics::copyIn<sizeof(Value)>(spare.value(), &value);
        Map::fill(slot, value);
    }

    // Moves all entries below the target and gives the slots beyond it back, unless readers still have the last shrink
    // before them, or there is no room to announce it all.
    void doMaybeShrinkSlots(std::uint32_t threshold) {
        conquer_.adjustCorral(slots_.numSlots());
        if (threshold == 0) return;
        if (conquer_.hasCorral()) {
            debug_.log(5, [&] {
                return Quil::cat("MemtabWriter::doMaybeShrinkSlots() shrink started, ignoring shrinkThreshold:",
                                 threshold);
            });
            return;
        }
        const std::uint32_t target = slots_.shrinkTarget(), before = slots_.numSlots();
        try {
            conquer_.reserve(before, 2 * entriesFrom(target) + 1);
        } catch (const Quil::MemoryResourceException& error) {
            debug_.log(3, [&] { return Quil::cat("MemtabWriter::doMaybeShrinkSlots() put off: ", error.what()); });
            return;
        }
        debug_.log(5, [&] {
            return Quil::cat("MemtabWriter::doMaybeShrinkSlots() numSlots:", before, " target:", target,
                             " shrinkThreshold:", threshold, threshold > target ? " SUPER SHRINK!" : "");
        });
        slots_.purgeFreeSlots(target);
        conquer_.markShrinkStart();
        for (std::uint32_t s = target; s < before; ++s) {
            if (isEntry(s)) move(s);
        }
        conquer_.markShrinkEnd();
        slots_.publishShrunk(target);
        conquer_.adjustCorral(target);  // at once when nobody reads
        ++version_;
        shorten();
    }

    bool isEntry(std::uint32_t index) { return (Mem::Atomics::load32(slots_[index].state) & occupied) != 0; }
    std::uint32_t entriesFrom(std::uint32_t start) {
        std::uint32_t count = 0;
        for (std::uint32_t s = start; s < slots_.numSlots(); ++s) count += isEntry(s);
        return count;
    }

    void move(std::uint32_t from) {
        const std::uint32_t to = slots_.takeLower(from);
        map_.move(from, to);
        conquer_.notify(to);
        conquer_.tombstone(from);
        map_.leave(from);
        conquer_.notify(from);
    }

    // Makes files shorter that a shrink has left too long. A mapping must not lose what its process may touch: every
    // reader must have said that it has mapped no more than the counts now say, and there must be none that the writer
    // cannot ask: a reader of its predecessor, or one that was disconnected against its will.
    void shorten() {
        if (!slots_.isTooLong() && !map_.buckets().isTooLong()) return;
        if (isInherited_ || (kickSm_ && kickSm_->hasOutcasts())) return;
        if (kickSm_ && !kickSm_->allHaveMapped(slots_.countCounter(), map_.buckets().countCounter())) return;
        try {  // the space is only kept
            if (slots_.isTooLong()) slots_.shorten();
            if (map_.buckets().isTooLong()) map_.buckets().shorten();
        } catch (const Quil::Exception& error) {
            debug_.log(3, [&] { return Quil::cat("MemtabWriter::shorten() failed: ", error.what()); });
        }
    }

    void onAcknowledge(const Mem::WriterKickSm::Reader& reader, std::uint64_t before) override {
        conquer_.updateSequence(reader, before);
    }
    void onReaders() override {
        conquer_.updateNumReaders();
        conquer_.adjustCorral(slots_.numSlots());
        shorten();
    }

    // Whether every entry's hash is that of its key and keys of equal hashes ascend: what only this type can tell.
    bool keysAreInPlace(Quil::String& reason) {
        std::optional<Key> before;
        std::uint32_t hashBefore = 0;
        for (std::uint32_t at = map_.first(); at != Map::noSlot; at = map_.firstFrom(slots_[at].link)) {
            const Key key = map_.value(at).fwkKey();
            const std::uint32_t rhash = Mem::Atomics::load32(slots_[at].rhash);
            const bool inOrder = !before || hashBefore < rhash || OpsType::less(*before, key);
            if (rhash != Verro::Util::reverse(OpsType::hash(key)) || !inOrder) {
                reason = Quil::cat("MemtabWriter::validate() slot:", at, " holds key ", OpsType::text(key),
                                   " out of place, rhash:", Quil::hex(rhash));
                return false;
            }
            before = key;
            hashBefore = rhash;
        }
        return true;
    }

    Quil::String unbalanced(const char* operation) {
        return Quil::cat("MemtabWriter::", operation, " unbalanced directSlot:", direct_->slot,
                         " containing value:", OpsType::text(directValue_));
    }
    [[noreturn]] void throwUnbalanced(const char* operation, const char* when, const Key& key) {
        throw Quil::AssertionException(Quil::cat(unbalanced(operation), " ", when, OpsType::text(key), directAdvice));
    }

    Quil::String writeTrace(const char* kind, const Key& key, std::uint32_t bucket, std::uint32_t index) {
        return Quil::cat("MemtabWriter::write()", kind, OpsType::text(key), " bucket:", bucket, " slot:", index,
                         " next:", Quil::hex(Mem::Versioned::load(slots_[index].link).value()));
    }

    Quil::Trace& debug_;
    const Quil::String name_;
    const Options options_;
    FenixId fenix_ = 0;
    SlotWriterTable slots_;
    Map map_;
    ConquerWriter conquer_;
    Mem::WriterKickSm* kickSm_ = nullptr;
    bool isInherited_ = false;      // the files were another process's before
    bool isReformatted_ = false;    // they were not fit to be used
    std::uint64_t version_ = 1;     // of the structure: which entries there are, and where
    std::optional<Direct> direct_;  // handed out and not yet committed
    Value directValue_;
};

}  // namespace Memtab

// MemtabWriter: the one writer of a table: writes, removes and walks entries, and announces every change.
//
// Owner     One map front. Exactly one writer exists per table; readers in other processes look on without locks.
// Threads   Event-loop thread.
// Lifetime  A returned reference to a value in a slot is good until the next call that may grow the table.
// Errors    TableFullException and MemoryResourceException leave the table as it was, with nothing announced;
//           CorruptionDetectedException means that the table's memory does not hang together.
//
// Publication of an entry (mirror: MemtabReader.h)
//   insert   own link, value and state, then the link of the predecessor, which makes it visible
//   rewrite  spare slot, LOOKASIDE, value, LOOKASIDE off
//   remove   link of the predecessor, OCCUPIED off, own link (free list)
#pragma once

#include "Memtab/ConquerWriter.h"
#include "Memtab/WriterHashMap.h"

namespace Memtab {

template <class Key, class Value, class OpsType>
class MemtabWriter {
    static_assert(std::is_trivially_copyable_v<Value> && sizeof(Value) % 4 == 0);

 public:
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
        } catch (...) {
            for (const char* file : {SlotWriterTable::fileName, BucketWriterTable::fileName}) directory.withdraw(file);
            for (const char* file : ConquerTable::fileNames) directory.withdraw(file);
            throw;
        }
        directory.publish(SlotWriterTable::fileName);
        directory.publish(BucketWriterTable::fileName);
        conquer_.publish(directory);
        debug_.log(5, [&] { return Quil::cat("MemtabWriter::attach() success ", name_, " fenix ", Quil::hex(fenix)); });
    }

    // Lets go of the files without removing them.
    void detach() {
        slots_.detach();
        map_.detach();
        conquer_.detach();
    }

    // Removes the table's files.
    void cleanup(Mem::Directory& directory) {
        debug_.log(5, [&] { return Quil::cat("MemtabWriter::cleanup() removing Memtab files ", name_); });
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
            debug_.log(9, [&] { return writeTrace(" new ", key, place.bucket, index); });
            map_.growBucketsIfFull();
        }
        if (notify) conquer_.notify(index);
        return *reinterpret_cast<const Value*>(slots_[index].value());
    }

    // Removes the entry, copying its last value out if asked. False when there is none.
    bool remove(const Key& key, Value* valueOut = nullptr) {
        conquer_.reserve(slots_.numSlots());
        const auto place = map_.find(key, OpsType::hash(key));
        if (place.slot == Map::noSlot) return false;
        SlotTable::Slot& slot = slots_[place.slot];
        if (valueOut) *valueOut = map_.value(place.slot);
        // ORDER remove, with MemtabReader::doLookup: out of the chain before OCCUPIED goes and the link is reused.
        Mem::Versioned::load(*place.link).next(Mem::Versioned::load(slot.link).value(), linkStep).store(*place.link);
        slots_.free(place.slot);
        conquer_.notify(place.slot);
        return true;
    }

    // The writer's own table. Each returns whether there is such an entry and copies it out.
    bool lookup(const Key& key, Value& valueOut) { return take(map_.find(key, OpsType::hash(key)).slot, valueOut); }
    bool first(Value& valueOut) { return take(map_.first(), valueOut); }
    // The entry that follows the key in the table's order, also when the key itself is gone.
    bool next(const Key& key, Value& valueOut) {
        const auto place = map_.find(key, OpsType::hash(key));
        return take(map_.firstFrom(place.slot == Map::noSlot ? *place.link : slots_[place.slot].link), valueOut);
    }

    const Quil::String& name() const { return name_; }
    FenixId fenixId() const { return fenix_; }
    std::uint32_t members() const { return slots_.occupiedSlots(); }
    std::uint32_t capacity() const { return slots_.numSlots(); }
    std::uint32_t maxSize() const { return options_.maxSize; }
    std::uint32_t minSize() const { return slots_.minSlots(); }
    std::uint32_t numBuckets() const { return map_.numBuckets(); }
    const std::uint64_t& sequence() const { return conquer_.sequence(); }
    ConquerWriter& conquer() { return conquer_; }
    const SlotWriterTable::Counters& writerCounters() const { return slots_.counters(); }

 private:
    using Map = WriterHashMap<Key, Value, OpsType>;

    bool take(std::uint32_t index, Value& valueOut) {
        if (index == Map::noSlot) return false;
        valueOut = map_.value(index);
        return true;
    }

    std::uint32_t insert(const typename Map::Place& place, std::uint32_t hash, const Value& value) {
        // The allocation may grow the slot file and move its mapping, and the insertion link with it.
        const Mem::AutoMemMove<Mem::Word64> link(*place.home, place.link);
        const std::uint32_t index = slots_.alloc(hash);
        SlotTable::Slot& slot = slots_[index];
        Mem::Versioned::load(slot.link).next(Mem::Versioned::load(*link).value(), linkStep).store(slot.link);
        fill(slot, value);
        // ORDER insert, with MemtabReader::doLookup: the slot is whole before this store makes it visible.
        Mem::Versioned::load(*link).next(index, linkStep).store(*link);
        return index;
    }

    void rewrite(SlotTable::Slot& slot, const Value& value) {
        // ORDER rewrite, with MemtabReader::copyValue: the spare copy is whole before LOOKASIDE sends readers to it ...
        SlotTable::Slot& spare = slots_.spare();
        Mem::Atomics::store32(spare.rhash, Mem::Atomics::load32(slot.rhash));
        Mem::Atomics::copyIn<sizeof(Value)>(spare.value(), &value);
        fill(slot, value);
    }

    // ... and LOOKASIDE stands before the first new byte and until the last. A free slot lacks OCCUPIED meanwhile.
    void fill(SlotTable::Slot& slot, const Value& value) {
        const std::uint32_t state = Mem::Atomics::load32(slot.state) + lookaside;
        Mem::Atomics::store32(slot.state, state);
        Mem::Atomics::copyIn<sizeof(Value)>(slot.value(), &value);
        Mem::Atomics::store32(slot.state, (state + lookaside) | occupied);
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
};

}  // namespace Memtab

// BucketTable: the file "buckets" of a table: for each bucket the link to the first slot of its chain.
//
//  byte  width  field
//     0      8  magic "MEMTBBKT"
//     8      4  version, 1
//    12      4  fenix      incarnation of the writer
//    16      4  platform   Compatibility::thisPlatform
//    20      4  0
//    24      8  count      one word: change counter (+1) and number of buckets, a power of two
//    32     32  0
//    64  8 * n  links      as a slot's link; a bucket without entries names, with bit 31, the bucket that follows it in
//                          the walk of the whole table, the last one endOfList
//
// The walk goes in bit-reversed bucket order, so that the whole table is one list in ascending rhash order.
#pragma once

#include <bit>
#include <memory>

#include "Mem/Segment.h"
#include "Memtab/SlotTable.h"

namespace Memtab {

namespace BucketTable {

struct L2RIB_EXPORT Header {
    static constexpr std::uint32_t currentVersion = 1;
    static constexpr char magicText[] = "MEMTBBKT";

    Mem::Word32 magic[2];
    Mem::Word32 version;
    Mem::Word32 fenix;
    Mem::Word32 platform;
    Mem::Word32 zero;
    Mem::Word64 count;
    std::byte rest[32];

    bool validate(Quil::Trace& debug, std::uint64_t fileSize, FenixId wantedFenix, Quil::String& reason) const;
};
static_assert(sizeof(Header) == 64 && offsetof(Header, fenix) == 12 && offsetof(Header, count) == 24);

// The bits of reversed hashes in which the keys of one bucket agree.
constexpr std::uint32_t rhashMask(std::uint32_t numBuckets) {
    return numBuckets > 1 ? ~std::uint32_t(0) << (32 - std::countr_zero(numBuckets)) : 0;
}

constexpr std::uint64_t fileSize(std::uint32_t buckets) { return 64 + std::uint64_t(buckets) * 8; }

// The bucket after this one in the walk of a table of so many buckets: its number, read with the lowest bit first, plus
// one. At least numBuckets after the last one.
constexpr std::uint32_t following(std::uint32_t bucket, std::uint32_t numBuckets) {
    // The carry runs downwards from the highest bit: ones become zeros until the first zero, which becomes one.
    const std::uint32_t zeros = ~bucket & (numBuckets - 1);
    if (zeros == 0) return numBuckets;
    const std::uint32_t carry = 0x80000000u >> std::countl_zero(zeros);
    return (bucket & (carry - 1)) | carry;
}
// The same as the end of a chain names it.
constexpr std::uint32_t endNaming(std::uint32_t bucket, std::uint32_t numBuckets) {
    const std::uint32_t next = following(bucket, numBuckets);
    return next < numBuckets ? next | endOfChain : endOfList;
}
static_assert(following(0, 8) == 4 && following(4, 8) == 2 && following(6, 8) == 1 && endNaming(7, 8) == endOfList);

}  // namespace BucketTable

// The writer's side.
class L2RIB_EXPORT BucketWriterTable {
 public:
    static constexpr const char* fileName = "buckets";

    // A fresh file with this many empty buckets, a power of two; it has its name only after publish().
    void create(Mem::Directory& directory, std::uint32_t numBuckets, FenixId fenix);
    bool attachExisting(Quil::Trace& debug, Mem::Directory& directory, FenixId fenix, Quil::String& reason);
    std::uint32_t numBuckets() const { return numBuckets_; }
    std::uint32_t countCounter() { return Mem::Versioned::load(header().count).counter(); }
    // Whether the file has more links than buckets; shorten() makes it fit. Nobody may have more mapped.
    bool isTooLong() const { return room_ > numBuckets_; }
    void shorten();
    std::uint32_t rhashMask() const { return BucketTable::rhashMask(numBuckets_); }
    Mem::Segment& segment() { return *segment_; }
    Mem::Word64& operator[](std::uint32_t bucket);  // raises corruption when out of range
    // Makes room for at least this many buckets, without publishing the count.
    void makeRoom(std::uint32_t numBuckets);
    // ORDER buckets, with BucketReaderTable::checkResize: every link below the new count is complete.
    void publishCount(std::uint32_t numBuckets);
    void detach() { segment_.reset(); }

 private:
    BucketTable::Header& header() { return *reinterpret_cast<BucketTable::Header*>(segment_->base()); }
    Mem::Word64* links() { return reinterpret_cast<Mem::Word64*>(segment_->base() + 64); }
    std::unique_ptr<Mem::Segment> segment_;
    std::uint32_t numBuckets_ = 0;  // published
    std::uint32_t room_ = 0;        // buckets the file has links for
};

// A reader's side.
class L2RIB_EXPORT BucketReaderTable {
 public:
    bool attach(Quil::Trace& debug, Mem::Directory& directory, FenixId fenix, Quil::String& reason);
    std::uint32_t numBuckets() const { return numBuckets_; }
    std::uint32_t rhashMask() const { return rhashMask_; }
    std::uint32_t countCounter() const { return count_.counter(); }
    // Requires: bucket below numBuckets().
    const Mem::Word64& link(std::uint32_t bucket) const { return links_[bucket]; }
    const Mem::Word64& operator[](std::uint32_t bucket) const;  // raises corruption when out of range
    // Whether the count word differs from the one this mapping was made for.
    bool isStale() const { return !(Mem::Versioned::load(*countWord_) == count_); }
    // Remaps when it is stale; returns whether it was.
    bool checkResize(Quil::Trace& debug);

 private:
    void readCount();
    const BucketTable::Header& header() const {
        return *reinterpret_cast<const BucketTable::Header*>(segment_->base());
    }
    std::unique_ptr<Mem::Segment> segment_;
    const Mem::Word64* countWord_ = nullptr;
    const Mem::Word64* links_ = nullptr;
    Mem::Versioned count_{0};
    std::uint32_t numBuckets_ = 0;
    std::uint32_t rhashMask_ = 0;
};

}  // namespace Memtab

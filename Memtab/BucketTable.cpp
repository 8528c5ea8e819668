#include "Memtab/BucketTable.h"

#include <algorithm>
#include <cstring>

#include "Memtab/Compatibility.h"
#include "Verro/Exception.h"

namespace Memtab {

using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::store32;
using Quil::cat;
using Quil::hex;

namespace BucketTable {

bool Header::validate(Quil::Trace& debug, std::uint64_t size, FenixId wantedFenix, Quil::String& reason) const {
    const std::uint32_t buckets = Versioned::load(count).value();
    if (size < sizeof(Header)) {
        reason = cat("BucketTable::Header::validate() bad header file size: ", size);
    } else if (std::memcmp(magic, magicText, 8) != 0) {
        reason = cat("BucketTable::Header::validate() bad magic: ", hex(magicNumber(magic)));
    } else if (load32(version) != currentVersion) {
        reason = cat("BucketTable::Header::validate() bad version: ", load32(version));
    } else if (wantedFenix != 0 && load32(fenix) != wantedFenix) {
        reason = cat("BucketTable::Header::validate() bad fenix:", hex(load32(fenix)), " wanted:", hex(wantedFenix));
    } else if (load32(platform) != Compatibility::thisPlatform) {
        reason = cat("BucketTable::Header::validate() bad platform specification: ",
                     Compatibility::platformType(load32(platform)));
    } else if (!std::has_single_bit(buckets)) {
        reason = cat("BucketTable::Header::validate() bad number of buckets: ", buckets);
    } else if (size < fileSize(buckets)) {
        reason = cat("BucketTable::Header::validate() bad shmem size:", size, " wanted:", fileSize(buckets), " for ",
                     buckets, " buckets");
    } else {
        reason.clear();
        return true;
    }
    debug.log(1, [&] { return reason; });
    return false;
}

}  // namespace BucketTable

void BucketWriterTable::create(Mem::Directory& directory, std::uint32_t numBuckets, FenixId fenix) {
    segment_ = directory.create(fileName, BucketTable::fileSize(numBuckets));
    room_ = numBuckets_ = numBuckets;
    std::memcpy(header().magic, BucketTable::Header::magicText, 8);
    store32(header().version, BucketTable::Header::currentVersion);
    store32(header().fenix, fenix);
    store32(header().platform, Compatibility::thisPlatform);
    for (std::uint32_t b = 0; b < numBuckets; ++b) {
        Versioned{0}.next(BucketTable::endNaming(b, numBuckets), 0).store(links()[b]);
    }
    Versioned{0}.next(numBuckets, 0).store(header().count);
}

Mem::Word64& BucketWriterTable::operator[](std::uint32_t bucket) {
    if (bucket >= room_) [[unlikely]] {
        throw Verro::CorruptionDetectedException(cat("BucketWriter::operator[] out-of-range, index:", bucket));
    }
    return links()[bucket];
}

bool BucketWriterTable::attachExisting(Quil::Trace& debug, Mem::Directory& directory, FenixId fenix,
                                       Quil::String& reason) {
    segment_ = directory.open(fileName, Mem::Directory::For::writing);
    if (!segment_) {
        reason = cat("no file ", fileName);
        return false;
    }
    if (!header().validate(debug, segment_->size(), fenix, reason)) return false;
    numBuckets_ = Versioned::load(header().count).value();
    room_ = static_cast<std::uint32_t>((segment_->size() - 64) / 8);
    return true;
}

void BucketWriterTable::makeRoom(std::uint32_t numBuckets) {
    if (numBuckets <= room_) return;
    segment_->resize(BucketTable::fileSize(numBuckets));
    room_ = numBuckets;
}

void BucketWriterTable::shorten() {
    segment_->resize(BucketTable::fileSize(numBuckets_));
    room_ = numBuckets_;
}

void BucketWriterTable::publishCount(std::uint32_t numBuckets) {
    Versioned::load(header().count).next(numBuckets, 1).store(header().count);
    numBuckets_ = numBuckets;
}

bool BucketReaderTable::attach(Quil::Trace& debug, Mem::Directory& directory, FenixId fenix, Quil::String& reason) {
    segment_ = directory.open(BucketWriterTable::fileName);
    if (!segment_) {
        reason = "no bucket file";
        return false;
    }
    while (!header().validate(debug, segment_->size(), fenix, reason)) {
        if (!segment_->refresh()) return false;
    }
    readCount();
    return true;
}

void BucketReaderTable::readCount() {
    // ORDER buckets: the count first. The file is at least as long as the count says, so a mapping made after is too.
    const Versioned count = Versioned::load(header().count);
    segment_->refresh();  // always: a file that was made shorter must not be believed to be as long as it was
    count_ = count;       // taken only when the mapping fits it: a refresh may fail
    countWord_ = &header().count;
    links_ = reinterpret_cast<const Mem::Word64*>(segment_->base() + 64);
    // Never more than is mapped, whatever the file says; a bucket's index is taken from the low bits of a hash.
    const std::uint64_t room = segment_->size() < sizeof(BucketTable::Header) ? 0 : (segment_->size() - 64) / 8;
    const std::uint64_t mapped = std::min<std::uint64_t>(room, endOfChain);
    numBuckets_ = std::bit_floor(std::min(count_.value(), static_cast<std::uint32_t>(mapped)));
    rhashMask_ = BucketTable::rhashMask(numBuckets_);
}

const Mem::Word64& BucketReaderTable::operator[](std::uint32_t bucket) const {
    if (bucket >= numBuckets_) [[unlikely]] {
        throw Verro::CorruptionDetectedException(cat("BucketReader::operator[] out-of-range, index:", bucket));
    }
    return links_[bucket];
}

bool BucketReaderTable::checkResize(Quil::Trace& debug) {
    if (!isStale()) return false;
    debug.log(5, [&] {
        return cat("BucketReader::checkResize() found mismatch, local ", numBuckets_, " published ",
                   Versioned::load(*countWord_).value());
    });
    readCount();
    return true;
}

}  // namespace Memtab

#include "SharedMem/FenixFile.h"

#include <unistd.h>

#include <cstring>
#include <ctime>
#include <random>

#include "Mem/WriterLock.h"
#include "Verro/Exception.h"

namespace SharedMem {
namespace {

constexpr char magic[] = "MEMTFENX";
constexpr std::uint32_t version = 1;

Quil::String fenixPath(const Quil::String& directory) { return directory + "/fenix"; }

// All zero when there is no valid one.
FenixRecord readRecord(const Mem::FileDescriptor& file) {
    FenixRecord record{};
    const bool whole = file && pread(file.get(), &record, sizeof record, 0) == static_cast<ssize_t>(sizeof record);
    const bool valid = whole && std::memcmp(record.magic, magic, 8) == 0 && record.version == version;
    return valid ? record : FenixRecord();
}

}  // namespace

FenixId FenixFile::read(const Quil::String& directory) {
    return readRecord(Mem::Files::open(fenixPath(directory), false)).id;
}

std::uint64_t FenixFile::startTime(const Quil::String& directory) {
    const FenixRecord record = readRecord(Mem::Files::open(fenixPath(directory), false));
    std::uint64_t start;
    std::memcpy(&start, record.startTime, 8);
    return start;
}

bool FenixFile::writerLives(const Quil::String& directory) {
    const auto file = Mem::Files::open(fenixPath(directory), false);
    return file && Mem::WriterLock::isHeld(file.get());
}

FenixFile::FenixFile(const Quil::String& directory)
    : path_(fenixPath(directory)), file_((Mem::Files::makeDirectories(directory), Mem::Files::openOrCreate(path_))) {
    if (!Mem::WriterLock::acquire(file_.get())) {
        throw Verro::InvalidInitializeException(Quil::cat(path_, ": another writer holds this table"));
    }
    id_ = readRecord(file_).id;
}

void FenixFile::write(FenixId id) {
    if (id == 0) {
        std::random_device random;
        while (id == 0 || id == id_) id = random();
    }
    FenixRecord record{};
    std::memcpy(record.magic, magic, 8);
    record.version = version;
    record.id = id;
    record.pid = static_cast<std::uint32_t>(getpid());
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::uint64_t start =
        static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec);
    std::memcpy(record.startTime, &start, 8);
    Mem::Files::write(file_.get(), path_, &record, sizeof record);
    id_ = id;
}

}  // namespace SharedMem

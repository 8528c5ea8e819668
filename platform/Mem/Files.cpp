#include "Mem/Files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Mem/Observer.h"

namespace Mem {
namespace {

[[noreturn]] void fail(const char* operation, const Quil::String& path, int error) {
    const Quil::String text = Quil::cat(operation, "(", path, "): ", std::strerror(error));
    if (error == ENOSPC || error == ENOMEM || error == EMFILE || error == ENFILE || error == EDQUOT || error == EFBIG) {
        throw Quil::MemoryResourceException(text);
    }
    throw Quil::SystemException(text);
}

// Runs the operation unless the observer fails it, and raises unless it succeeded.
template <class F>
auto attempt(const char* operation, const Quil::String& path, F&& run) {
    if (const int error = observeFile(operation, path.c_str())) fail(operation, path, error);
    const auto result = run();
    if (result < 0) fail(operation, path, errno);
    return result;
}

FileDescriptor openWith(const Quil::String& path, int flags) {
    FileDescriptor fd(attempt("open", path, [&] { return ::open(path.c_str(), flags | O_CLOEXEC, tableFileMode); }));
    if (flags & O_CREAT) attempt("fchmod", path, [&] { return fchmod(fd.get(), tableFileMode); });
    return fd;
}

}  // namespace

Quil::String pathUnder(const Quil::String& root, const Quil::String& name) {
    const char* chroot = std::getenv("Q7_CHROOT");
    return Quil::cat(chroot ? chroot : "", root, "/", name);
}

void Files::makeDirectories(const Quil::String& path) {
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const Quil::String part = path.substr(0, slash);
        attempt("mkdir", part, [&] {
            if (mkdir(part.c_str(), tableDirectoryMode) == 0) return chmod(part.c_str(), tableDirectoryMode);
            return errno == EEXIST ? 0 : -1;
        });
        if (slash == path.npos) return;
    }
}

FileDescriptor Files::create(const Quil::String& path) { return openWith(path, O_RDWR | O_CREAT | O_TRUNC); }
FileDescriptor Files::openOrCreate(const Quil::String& path) { return openWith(path, O_RDWR | O_CREAT); }

FileDescriptor Files::open(const Quil::String& path, bool writable) {
    if (const int error = observeFile("open", path.c_str())) fail("open", path, error);
    FileDescriptor fd(::open(path.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC));
    if (!fd && errno != ENOENT && errno != ENOTDIR) fail("open", path, errno);
    return fd;
}

std::uint64_t Files::size(int fd, const Quil::String& path) {
    struct stat status {};
    attempt("fstat", path, [&] { return fstat(fd, &status); });
    return static_cast<std::uint64_t>(status.st_size);
}

void Files::lengthen(int fd, const Quil::String& path, std::uint64_t from, std::uint64_t to) {
    attempt("posix_fallocate", path, [&] {
        do {
            errno = posix_fallocate(fd, static_cast<off_t>(from), static_cast<off_t>(to - from));
        } while (errno == EINTR);
        return errno ? -1 : 0;
    });
}

void Files::shorten(int fd, const Quil::String& path, std::uint64_t to) {
    attempt("ftruncate", path, [&] { return ftruncate(fd, static_cast<off_t>(to)); });
}

void* Files::map(int fd, const Quil::String& path, std::uint64_t size, bool writable) {
    void* base = MAP_FAILED;
    attempt("mmap", path, [&] {
        base = mmap(nullptr, size, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
        return base == MAP_FAILED ? -1 : 0;
    });
    return base;
}

void* Files::remap(void* base, const Quil::String& path, std::uint64_t from, std::uint64_t to) {
    void* moved = MAP_FAILED;
    attempt("mremap", path, [&] {
        moved = mremap(base, from, to, MREMAP_MAYMOVE);
        return moved == MAP_FAILED ? -1 : 0;
    });
    return moved;
}

void Files::populate(void* base, std::uint64_t from, std::uint64_t to) {
    const std::uint64_t page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)), start = from / page * page;
    // Only an advice: a kernel before 5.14 does not know it, and brings each page in with its first touch.
    madvise(static_cast<std::byte*>(base) + start, to - start, MADV_POPULATE_WRITE);
}

void Files::unmap(void* base, std::uint64_t size) { munmap(base, size); }

void Files::write(int fd, const Quil::String& path, const void* bytes, std::size_t size) {
    attempt("pwrite", path, [&] {
        const ssize_t written = pwrite(fd, bytes, size, 0);
        if (written >= 0 && static_cast<std::size_t>(written) < size) errno = ENOSPC;
        return written == static_cast<ssize_t>(size) ? 0 : -1;
    });
}

void Files::rename(const Quil::String& from, const Quil::String& to) {
    attempt("rename", to, [&] { return std::rename(from.c_str(), to.c_str()); });
}

void Files::remove(const Quil::String& path) {
    attempt("unlink", path, [&] {
        const int result = unlink(path.c_str());
        return result < 0 && errno == ENOENT ? 0 : result;
    });
}

}  // namespace Mem

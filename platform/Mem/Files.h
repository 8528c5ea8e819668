// Files.h: every file operation of the engine, in one place, so that a test can fail any of them.
//
// Errors    SystemException, or MemoryResourceException where space ran out; the text names operation, path and reason.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "Quil/Exception.h"
#include "Quil/FileDescriptor.h"

namespace Mem {

using Quil::FileDescriptor;

// Owner may write, the group read: what a table's files are made with, whatever the umask says.
constexpr mode_t tableFileMode = 0640;
constexpr mode_t tableDirectoryMode = 0750;

// Where a file of this name under the root lies: $Q7_CHROOT goes before the root.
L2RIB_EXPORT Quil::String pathUnder(const Quil::String& root, const Quil::String& name);

struct L2RIB_EXPORT Files {
    static void makeDirectories(const Quil::String& path);
    static FileDescriptor create(const Quil::String& path);               // new or emptied, read and write
    static FileDescriptor openOrCreate(const Quil::String& path);         // kept as it is, read and write
    static FileDescriptor open(const Quil::String& path, bool writable);  // none when the file is not there
    static std::uint64_t size(int fd, const Quil::String& path);
    // Lengthens with the space allocated: a later store cannot fail for a full file system.
    static void lengthen(int fd, const Quil::String& path, std::uint64_t from, std::uint64_t to);
    static void shorten(int fd, const Quil::String& path, std::uint64_t to);
    static void* map(int fd, const Quil::String& path, std::uint64_t size, bool writable);
    static void* remap(void* base, const Quil::String& path, std::uint64_t from, std::uint64_t to);
    // Brings these pages of a writable mapping in at once: the first touch of a page costs more than many writes to it.
    static void populate(void* base, std::uint64_t from, std::uint64_t to);
    static void unmap(void* base, std::uint64_t size);
    static void write(int fd, const Quil::String& path, const void* bytes, std::size_t size);  // at offset 0
    static void rename(const Quil::String& from, const Quil::String& to);
    static void remove(const Quil::String& path);  // nothing when it is not there
};

}  // namespace Mem

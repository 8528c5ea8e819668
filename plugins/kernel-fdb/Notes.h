// Notes.h: which entries this process made, kept in a file over its restarts and crashes: noted before an entry is
// made, and crossed out after it is gone.
//
// A line is "+ KEY VTEP" or "- KEY". One process at a time has the file.
#pragma once

#include <map>

#include "Bridging/MacVlanPair.h"
#include "Lanx/IpGenAddr.h"
#include "Mem/Files.h"

namespace KernelFdb {

class Notes {
 public:
    using Entries = std::map<Bridging::MacVlanPair, Lanx::IpGenAddr>;

    // Reads what is noted there. SystemException when the file is not to be had, or another process has it.
    explicit Notes(Quil::String path);

    const Entries& entries() const { return entries_; }
    // SystemException when it cannot be written; nothing is noted then.
    void made(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep);
    void gone(const Bridging::MacVlanPair& key);

 private:
    void read();
    void rewrite();
    void append(const Quil::String& line);

    const Quil::String path_;
    Mem::FileDescriptor file_;
    Entries entries_;
};

}  // namespace KernelFdb

// Notes.h: which entries this process made, kept in a file over its restarts and crashes: noted before an entry is
// made, and crossed out after it is gone.
//
// A line is "+ KEY VTEP" or "- KEY". Until the kernel has taken a change, the old VTEP and the new one may be there;
// both are noted. One process at a time has the file, which is written anew when most of it is over.
#pragma once

#include <map>
#include <set>

#include "Bridging/MacVlanPair.h"
#include "Lanx/IpGenAddr.h"
#include "Mem/Files.h"

namespace KernelFdb {

class Notes {
 public:
    using Entries = std::map<Bridging::MacVlanPair, std::set<Lanx::IpGenAddr>>;

    // Reads what is noted there. SystemException when the file is not to be had, or another process has it.
    explicit Notes(Quil::String path);

    const Entries& entries() const { return entries_; }
    bool holds(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep) const;
    // It is about to be made. SystemException when it cannot be written; nothing is noted then.
    void willBe(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep);
    // The kernel has it so: no other VTEP of the host is.
    void is(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep);
    void gone(const Bridging::MacVlanPair& key);

 private:
    void read();
    void rewrite();
    void append(const Quil::String& line);

    const Quil::String path_;
    Mem::FileDescriptor file_;
    Entries entries_;
    std::size_t lines_ = 0;  // of the file
};

}  // namespace KernelFdb

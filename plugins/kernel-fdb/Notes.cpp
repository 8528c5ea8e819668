#include "plugins/kernel-fdb/Notes.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "Quil/Exception.h"

namespace KernelFdb {

using Quil::cat;

Notes::Notes(Quil::String path) : path_(std::move(path)), file_(Mem::Files::openOrCreate(path_)) {
    if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
        throw Quil::SystemException(cat("kernel-fdb: ", path_, " belongs to another process"));
    }
    read();
    rewrite();
}

void Notes::read() {
    std::ifstream in(path_);
    for (std::string line; std::getline(in, line);) {
        const auto end = line.find(' ', 2);
        try {
            const Bridging::MacVlanPair key(line.substr(2, end - 2));
            if (line[0] == '+' && end != std::string::npos) {
                entries_[key].insert(Lanx::IpGenAddr(line.substr(end + 1)));
            } else if (line[0] == '-') {
                entries_.erase(key);
            }
        } catch (const std::exception&) {  // a line cut short by a full file system
        }
    }
}

// In place, without what is over: the lock goes with the file. Dying halfway leaves lines twice, or old ones.
void Notes::rewrite() {
    Quil::String text;
    lines_ = 0;
    for (const auto& [key, vteps] : entries_) {
        for (const auto& vtep : vteps) text += cat("+ ", key, " ", vtep, "\n");
        lines_ += vteps.size();
    }
    Mem::Files::write(file_.get(), path_, text.data(), text.size());
    if (ftruncate(file_.get(), static_cast<off_t>(text.size())) != 0 || lseek(file_.get(), 0, SEEK_END) < 0) {
        throw Quil::SystemException(cat("kernel-fdb: ", path_, ": ", std::strerror(errno)));
    }
}

void Notes::append(const Quil::String& line) {
    if (++lines_ > 4 * entries_.size() + 10000) rewrite();
    const off_t before = lseek(file_.get(), 0, SEEK_CUR);
    if (::write(file_.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size())) return;
    const int error = errno;
    // Half a line would spoil the next one.
    if (ftruncate(file_.get(), before) == 0) lseek(file_.get(), before, SEEK_SET);
    throw Quil::SystemException(cat("kernel-fdb: ", path_, ": ", std::strerror(error)));
}

bool Notes::holds(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep) const {
    const auto noted = entries_.find(key);
    return noted != entries_.end() && noted->second.contains(vtep);
}

void Notes::willBe(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep) {
    if (holds(key, vtep)) return;
    append(cat("+ ", key, " ", vtep, "\n"));
    entries_[key].insert(vtep);
}

void Notes::is(const Bridging::MacVlanPair& key, const Lanx::IpGenAddr& vtep) { entries_[key] = {vtep}; }

void Notes::gone(const Bridging::MacVlanPair& key) {
    if (!entries_.contains(key)) return;
    append(cat("- ", key, "\n"));
    entries_.erase(key);
}

}  // namespace KernelFdb

// Support.h: what tests share: scratch directories, child processes, scale, and records that accuse themselves.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "L2Rib/HostOutput.h"
#include "Quil/EventLoop.h"

namespace test {

// A fresh directory in shared memory, removed with the object.
class ScratchDir {
 public:
    ScratchDir();
    ~ScratchDir();
    const std::string& path() const { return path_; }

 private:
    std::string path_;
};

// The counts and seconds of heavy tests are multiplied by L2RIB_TEST_SCALE (default 1).
double scale();
inline unsigned scaled(double n) { return static_cast<unsigned>(n * scale()) + 1; }

// Seeds come from L2RIB_TEST_SEED or are fresh; SCOPED_TRACE(seedNote(seed)) tells how to run again.
unsigned seed();
std::string seedNote(unsigned seed);

// A process started from this build's bin directory, through the emulator where there is one. Its standard output and
// error are read together; the destructor kills it.
class Child {
 public:
    explicit Child(const std::vector<std::string>& command);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    int pid() const { return pid_; }
    std::string readLine(double timeoutSeconds = 60);  // without its newline; "" at the end or after the time
    std::string readUntil(const std::string& needle, double timeoutSeconds = 60);  // the line that contains it
    void kill(int signal);
    // Waits for its end and returns the exit status, or 128 + signal. The rest of its output goes to rest().
    int wait();
    const std::string& rest() const { return rest_; }

 private:
    int pid_ = -1;
    int out_ = -1;
    std::string pending_;
    std::string rest_;
    bool waited_ = false;
};
// Runs to the end; returns the exit status and the output.
std::pair<int, std::string> run(const std::vector<std::string>& command);

// The user-mode emulator of 32-bit builds starts no threads.
constexpr bool hasThreads = sizeof(L2RIB_TEST_EMULATOR) == 1;

// A network namespace of its own; where none is allowed, exists() is false.
class NetNs {
 public:
    explicit NetNs(const std::string& purpose);
    ~NetNs();
    bool exists() const { return exists_; }
    bool run(const std::string& command) const;  // in the namespace; whether it succeeded
    // A program of this build in the namespace, as a command for Child: the process started is the program itself.
    // Without the emulator of 32-bit builds, which does not come here.
    std::vector<std::string> inside(std::vector<std::string> command) const;

 private:
    const std::string name_;
    const bool exists_;
};

// Turns the loop until the condition holds; false after the time.
bool turnUntil(Quil::EventLoop& loop, const std::function<bool()>& condition, double seconds = 20);

// Hosts that accuse themselves: every part of a record is a function of its number and generation.
Bridging::MacVlanPair keyOf(std::uint32_t number);
L2Rib::HostAndSource recordOf(std::uint32_t number, std::uint32_t generation);
bool isWhole(const L2Rib::HostAndSource& record);  // the parts belong together
inline std::uint32_t generationOf(const L2Rib::HostAndSource& record) { return record.host().seqNo().value(); }

}  // namespace test

#include "support/Support.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sstream>

namespace test {

ScratchDir::ScratchDir() {
    static std::atomic<int> count{0};
    path_ = Quil::cat("/dev/shm/l2rib-test-", getpid(), "-", ++count);
    std::filesystem::create_directories(path_);
}
ScratchDir::~ScratchDir() { std::filesystem::remove_all(path_); }

double scale() {
    const char* setting = std::getenv("L2RIB_TEST_SCALE");
    return setting ? std::atof(setting) : 1.0;
}

unsigned seed() {
    const char* setting = std::getenv("L2RIB_TEST_SEED");
    return setting ? static_cast<unsigned>(std::strtoul(setting, nullptr, 10)) : std::random_device()();
}
std::string seedNote(unsigned seed) { return Quil::cat("rerun with L2RIB_TEST_SEED=", seed); }

Child::Child(const std::vector<std::string>& command) {
    std::vector<std::string> words;
    const bool ours = command[0][0] != '/';  // else a program of the system, by its path
    std::istringstream emulator(ours ? L2RIB_TEST_EMULATOR : "");
    for (std::string word; emulator >> word;) words.push_back(word);
    words.push_back(ours ? std::string(L2RIB_TEST_BIN) + "/" + command[0] : command[0]);
    words.insert(words.end(), command.begin() + 1, command.end());
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    // Spawned: a fork would not return under the emulator of 32-bit builds.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
    if (posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    out_ = ends[0];
}

Child::~Child() {
    if (!waited_) {
        kill(SIGKILL);
        kill(SIGCONT);
        wait();
    }
    close(out_);
}

void Child::kill(int signal) { ::kill(pid_, signal); }

std::string Child::readLine(double timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    for (;;) {
        if (const auto end = pending_.find('\n'); end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return line;
        }
        const std::chrono::duration<double> left = deadline - std::chrono::steady_clock::now();
        pollfd waiting{out_, POLLIN, 0};
        char bytes[4096];
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count() * 1000) + 1) <= 0) return "";
        const ssize_t size = read(out_, bytes, sizeof bytes);
        if (size <= 0) return std::exchange(pending_, "");
        pending_.append(bytes, static_cast<std::size_t>(size));
    }
}

std::string Child::readUntil(const std::string& needle, double timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    std::string seen;
    while (std::chrono::steady_clock::now() < deadline) {
        const std::string line = readLine(timeoutSeconds);
        if (line.find(needle) != std::string::npos) return line;
        if (line.empty() && pending_.empty()) break;
        seen += line + "\n";
    }
    ADD_FAILURE() << "no line with '" << needle << "' in:\n" << seen;
    return "";
}

int Child::wait() {
    rest_ = std::exchange(pending_, "");
    char bytes[4096];
    for (ssize_t size; (size = read(out_, bytes, sizeof bytes)) > 0;)
        rest_.append(bytes, static_cast<std::size_t>(size));
    int status = 0;
    waitpid(pid_, &status, 0);
    waited_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::pair<int, std::string> run(const std::vector<std::string>& command) {
    Child child(command);
    const int status = child.wait();
    return {status, child.rest()};
}

namespace {
bool succeeds(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }
}  // namespace

NetNs::NetNs(const std::string& purpose)
    : name_(Quil::cat("l2rib-", purpose, "-", getpid())), exists_(succeeds("ip netns add " + name_)) {}
NetNs::~NetNs() {
    if (exists_) succeeds("ip netns del " + name_);
}

bool NetNs::run(const std::string& command) const { return succeeds("ip netns exec " + name_ + " " + command); }

std::vector<std::string> NetNs::inside(std::vector<std::string> command) const {
    command[0] = std::string(L2RIB_TEST_BIN) + "/" + command[0];
    command.insert(command.begin(), {"/sbin/ip", "netns", "exec", name_});
    return command;
}

bool turnUntil(Quil::EventLoop& loop, const std::function<bool()>& condition, double seconds) {
    const double deadline = loop.clock()->now() + seconds;
    while (!condition()) {
        if (loop.clock()->now() > deadline) return false;
        loop.runOnce(0.02);
    }
    return true;
}

Bridging::MacVlanPair keyOf(std::uint32_t number) {
    return {Lanx::EthAddr::fromNumber(0x020000000000ULL + number), Bridging::VlanId(1 + number % 4094)};
}

L2Rib::HostAndSource recordOf(std::uint32_t number, std::uint32_t generation) {
    L2Rib::Host host(keyOf(number));
    host.seqNoIs(Keel::Seqno32(generation));
    host.preferenceIs(generation ^ number);
    host.lastMoveTimeIs(generation * 4096.0 + number);
    L2Rib::CiDest dest;
    dest.intfIs(Lanx::IntfId((std::uint64_t(generation) << 32 | number)));
    host.ciDestIs(dest);
    host.nextIs(L2Rib::ObjTuple(L2Rib::ObjId(std::uint64_t(number) << 32 | generation), L2Rib::tableTypeDest));
    L2Rib::HostAndSource record(keyOf(number));
    record.hostIs(host);
    record.sourceIs(L2Rib::SourceDecoder::sourceFromEnum(generation + number));
    return record;
}

bool isWhole(const L2Rib::HostAndSource& record) {
    const std::uint32_t generation = generationOf(record), number = record.host().preference() ^ generation;
    const L2Rib::HostAndSource expected = recordOf(number, generation);
    return std::memcmp(&record, &expected, sizeof record) == 0;
}

}  // namespace test

// Processes.h: times, and processes beside this one.
#pragma once

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <vector>

namespace bench {

inline double nanoseconds() {
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

inline double quantile(std::vector<double>& values, double q) {
    if (values.empty()) return NAN;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(q * static_cast<double>(values.size())))];
}

// Memory that a process and its children share.
template <class T>
class Shared {
 public:
    Shared() : at_(mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (at_ == MAP_FAILED) std::abort();
        new (at_) T();
    }
    ~Shared() { munmap(at_, sizeof(T)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    T* operator->() const { return static_cast<T*>(at_); }
    T& operator*() const { return *static_cast<T*>(at_); }

 private:
    void* at_;
};

// Runs a function in a process of its own; this one does something else meanwhile, again and again.
inline void beside(const std::function<void()>& other, const std::function<void()>& meanwhile) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) std::abort();
    if (child == 0) {
        other();
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) meanwhile();
    if (status == 0) return;
    std::fprintf(stderr, "bench: the other process failed\n");
    std::exit(2);
}

}  // namespace bench

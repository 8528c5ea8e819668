#include "Quil/Counter.h"

#include <algorithm>

namespace Quil {
namespace {
std::vector<const Counter*>& registered() {
    static std::vector<const Counter*> counters;
    return counters;
}
}  // namespace

Counter::Counter(String name) : name_(std::move(name)) { registered().push_back(this); }
Counter::~Counter() { std::erase(registered(), this); }

const std::vector<const Counter*>& CounterRegistry::counters() { return registered(); }

std::uint64_t CounterRegistry::total(const String& name) {
    std::uint64_t sum = 0;
    for (const Counter* counter : registered()) sum += counter->name() == name ? counter->value() : 0;
    return sum;
}

}  // namespace Quil

// AgentView.h: what the agent shows of itself beside the output table, as this process has received it.
#pragma once

#include "Mem/Files.h"
#include "Quil/AttrLogSink.h"
#include "agent/Places.h"

namespace Tool {

// One of the agent's entity trees, whole. Raises SystemException where no agent answers.
template <class E>
class AgentView {
 public:
    AgentView(const std::string& root, const char* socket, Quil::Ptr<E> tree)
        : tree_(std::move(tree)),
          sink_(loop_, Mem::pathUnder(root, Agent::Places::agent), socket, Quil::Ptr<Quil::Entity>(tree_)) {
        turnUntil([this] { return sink_.isConnected(); }, 0.25);
        if (!sink_.isConnected() || !turnUntil([this] { return sink_.isSynchronised(); }, patience)) {
            throw Quil::SystemException("no agent answers under " + root);
        }
    }
    const E& operator*() const { return *tree_; }
    const E* operator->() const { return tree_.get(); }

    // Sets an attribute as it stands in wanted, and waits until the agent says it is so; false when it does not.
    template <class IsSo>
    bool ask(const E& wanted, std::uint16_t attribute, IsSo&& isSo) {
        return sink_.ask(wanted, attribute) && turnUntil([&] { return isSo(*tree_); }, patience);
    }

 private:
    static constexpr Quil::Seconds patience = 10;

    template <class F>
    bool turnUntil(F&& condition, Quil::Seconds atMost) {
        const Quil::Seconds end = loop_.clock()->now() + atMost;
        while (!condition()) {
            if (loop_.clock()->now() >= end) return false;
            loop_.runOnce(end - loop_.clock()->now());
        }
        return true;
    }

    Quil::EventLoop loop_;
    const Quil::Ptr<E> tree_;
    Quil::AttrLogSink sink_;
};

}  // namespace Tool

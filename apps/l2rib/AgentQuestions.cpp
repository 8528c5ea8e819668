#include "l2rib/AgentQuestions.h"

#include "Mem/Files.h"
#include "agent/Places.h"

namespace Tool {

AgentQuestions::AgentQuestions(const std::string& root, int timeout)
    : root_(root), socket_(Mem::pathUnder(root, Agent::Places::agent), Agent::Places::questions, timeout) {}

Apps::Json AgentQuestions::ask(const Apps::Json& question) const {
    try {
        return socket_.ask(question);
    } catch (const Quil::SystemException& error) {
        throw Quil::SystemException(Quil::cat(error.what(), " under ", root_));
    }
}

std::optional<std::vector<Quil::String>> AgentQuestions::flagsOf(const std::vector<L2Rib::HostAndSource>& hosts) const {
    constexpr std::size_t atATime = 1000;
    std::vector<Quil::String> flags;
    try {
        while (flags.size() < hosts.size()) {
            const std::size_t begin = flags.size(), end = std::min(begin + atATime, hosts.size());
            Apps::Json keys = Apps::Json::array();
            for (std::size_t i = begin; i < end; ++i) keys.push_back(hosts[i].key().str());
            const auto answer = ask({{"flags", keys}}).get<std::vector<Quil::String>>();
            if (answer.size() != end - begin) return std::nullopt;
            flags.insert(flags.end(), answer.begin(), answer.end());
        }
        return flags;
    } catch (const Quil::SystemException&) {
        return std::nullopt;
    }
}

}  // namespace Tool

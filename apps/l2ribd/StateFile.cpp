#include "l2ribd/StateFile.h"

#include "L2Rib/Constants.h"
#include "Mem/Files.h"
#include "common/JsonFile.h"

std::optional<AgentState> StateFile::read() const {
    if (!Mem::Files::open(path_, false)) return std::nullopt;
    return Apps::readJson(path_, [](const Apps::Json& json) {
        AgentState state;
        Apps::JsonObject object(json);
        object.require("reserved", [&](const Apps::Json& value) {
            Apps::JsonObject reserved(value);
            const auto read = [&](const char* table, std::uint64_t& id) {
                reserved.require(table, [&](const Apps::Json& number) {
                    id = Apps::bounded(number, L2Rib::Constants::objIdLast.value());
                });
            };
            read("loadBalance", state.reserved.lb);
            read("label", state.reserved.label);
            read("dest", state.reserved.dest);
            reserved.end();
        });
        object.require("sources", [&](const Apps::Json& value) {
            state.sources = static_cast<std::uint32_t>(Apps::bounded(value, L2Rib::sourceAll));
        });
        object.end();
        return std::optional(state);
    });
}

void StateFile::write(const AgentState& state) const {
    Apps::writeJson(
        path_, {{"reserved",
                 {{"loadBalance", state.reserved.lb}, {"label", state.reserved.label}, {"dest", state.reserved.dest}}},
                {"sources", state.sources}});
}

#include "L2Rib/FloodSetOutput.h"

namespace L2Rib {

FloodSetOutput::FloodSetOutput(Quil::Name name) : Entity(std::move(name)) {}
FloodSetOutput::~FloodSetOutput() = default;

const Quil::Type& FloodSetOutput::fwkType() const { return Quil::typeOf<FloodSetOutput>(); }

void FloodSetOutput::fwkDeclare(Quil::TypeBuilder<FloodSetOutput>& type) {
    type.name("L2Rib::FloodSetOutput")
        .creator<Quil::Name>(&floodSetOutputFactory)
        .attribute("source", &FloodSetOutput::source, &FloodSetOutput::sourceIs)
        .children(
            "vlanFloodSet", [](const FloodSetOutput& out) -> const auto& { return out.vlanFloodSet(); },
            &FloodSetOutput::vlanFloodSetIs, &FloodSetOutput::vlanFloodSetDel, &FloodSetOutput::vlanFloodSetDelAll);
}

Quil::Ptr<FloodSetOutput> floodSetOutputFactory(const Quil::Name& name) { return Quil::makePtr<FloodSetOutput>(name); }

}  // namespace L2Rib

#include "L2Rib/ObjTupleManager.h"

#include "L2Rib/SchemaFiles.h"
#include "Quil/Assert.h"
#include "Quil/Trace.h"

namespace L2Rib {
namespace {

constexpr const char* initializedSignature = "void L2Rib::ObjTupleManager::handleInitialized()";
constexpr const char* newSignature =
    "const L2Rib::ObjTuple L2Rib::ObjTupleManager::newOutputOt(const L2Rib::ObjTupleAndSource&)";
constexpr const char* delSignature = "void L2Rib::ObjTupleManager::delOutputOt(const L2Rib::ObjTuple&)";
constexpr const char* restoreSignature =
    "void L2Rib::ObjTupleManager::restoreMapping(const L2Rib::ObjTupleAndSource&, const L2Rib::ObjTuple&)";

constexpr int signatureLevel = 9;

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("L2Rib::ObjTupleManager");
    return handle;
}

void check(bool condition, const char* text, const char* function) {
    Quil::assertThat(condition, text, SchemaFiles::util, function);
}

template <class Map, class Key, class Value>
Value lookup(const Map& map, const Key& key, const Value& none) {
    const auto found = map.find(key);
    return found == map.end() ? none : found->second;
}

}  // namespace

ObjTupleManager::ObjTupleManager(TableType tableType, std::uint64_t first, std::uint64_t last)
    : Entity(stringValue(tableType)), tableType_(tableType), first_(first), last_(last) {
    handleInitialized();
}

void ObjTupleManager::handleInitialized() {
    trace().log(signatureLevel, [&] {
        return Quil::cat(initializedSignature, " for ", tableType_, " with first ", first_, " and last ", last_);
    });
    check(!initialized_, "!initialized()", initializedSignature);
    setAndNotify(initialized_, true, notifiees_, &NotifieeConst::onInitialized);
    currentIs(first_);
}

ObjTuple ObjTupleManager::inputToOutput(const ObjTupleAndSource& otas) const {
    return lookup(inputToOutput_, otas, Util::objTupleInvalid());
}

ObjTupleAndSource ObjTupleManager::outputToInput(const ObjTuple& ot) const {
    return lookup(outputToInput_, ot, ObjTupleAndSource());
}

// Stores the value; whether that is a change.
template <class Map, class Key, class Value>
bool ObjTupleManager::changes(Map& map, const Key& key, const Value& value) {
    const auto [at, fresh] = map.try_emplace(key, value);
    if (!fresh && at->second == value) return false;
    at->second = value;
    return true;
}

void ObjTupleManager::inputToOutputIs(const ObjTupleAndSource& otas, const ObjTuple& ot) {
    if (!changes(inputToOutput_, otas, ot)) return;
    notifiees_.forEach([&](NotifieeConst& n) { n.onInputToOutput(otas); });
}

void ObjTupleManager::outputToInputIs(const ObjTuple& ot, const ObjTupleAndSource& otas) {
    if (!changes(outputToInput_, ot, otas)) return;
    notifiees_.forEach([&](NotifieeConst& n) { n.onOutputToInput(ot); });
}

ObjTuple ObjTupleManager::newOutputOt(const ObjTupleAndSource& otas) {
    const std::uint64_t id = current_;
    currentIs(id + 1);
    check(current_ <= last_, "current() <= last()", newSignature);
    const ObjTuple newOt(ObjId(id), tableType_);
    check(inputToOutput(otas) == Util::objTupleInvalid(), "inputToOutput( otas ) == Util::objTupleInvalid()",
          newSignature);
    check(outputToInput(newOt).objTuple() == Util::objTupleInvalid(),
          "outputToInput( newOt ).objTuple() == Util::objTupleInvalid()", newSignature);
    inputToOutputIs(otas, newOt);
    outputToInputIs(newOt, otas);
    trace().log(signatureLevel,
                [&] { return Quil::cat(newSignature, " for ", tableType_, " input: ", otas, " output: ", newOt); });
    return newOt;
}

void ObjTupleManager::delOutputOt(const ObjTuple& ot) {
    check(!(ot == Util::objTupleInvalid()) && ot.objId().value() < current_,
          "ot != Util::objTupleInvalid() && ot.objId() < current()", delSignature);
    const ObjTuple outputOt = ot;  // the caller may pass a tuple that lives in the maps
    const ObjTupleAndSource otas = outputToInput(outputOt);
    trace().log(signatureLevel,
                [&] { return Quil::cat(delSignature, " for ", tableType_, " input: ", otas, " output: ", outputOt); });
    check(!(otas.objTuple() == Util::objTupleInvalid()), "otas.objTuple() != Util::objTupleInvalid()", delSignature);
    check(inputToOutput(otas) == outputOt, "inputToOutput( otas ) == ot", delSignature);
    outputToInput_.erase(outputOt);
    notifiees_.forEach([&](NotifieeConst& n) { n.onOutputToInput(outputOt); });
    inputToOutput_.erase(otas);
    notifiees_.forEach([&](NotifieeConst& n) { n.onInputToOutput(otas); });
}

void ObjTupleManager::restoreMapping(const ObjTupleAndSource& otas, const ObjTuple& ot) {
    trace().log(signatureLevel, [&] { return Quil::cat(restoreSignature, " between ", otas, " and ", ot); });
    check(ot.objId().value() < current_, "ot.objId() < current()", restoreSignature);
    inputToOutputIs(otas, ot);
    outputToInputIs(ot, otas);
}

const Quil::Type& ObjTupleManager::fwkType() const { return Quil::typeOf<ObjTupleManager>(); }

void ObjTupleManager::fwkDeclare(Quil::TypeBuilder<ObjTupleManager>& type) {
    type.name("L2Rib::ObjTupleManager")
        .creator<TableType, std::uint64_t, std::uint64_t>(&objTupleManagerFactory)
        .attribute("tableType", &ObjTupleManager::tableType)
        .attribute("first", &ObjTupleManager::first)
        .attribute("last", &ObjTupleManager::last)
        .attribute("current", &ObjTupleManager::current, &ObjTupleManager::currentIs)
        .attribute("initialized", &ObjTupleManager::initialized)
        .attribute("inputToOutput",
                   [](const ObjTupleManager& manager) { return Quil::mapText(manager.inputToOutput_); })
        .attribute("outputToInput",
                   [](const ObjTupleManager& manager) { return Quil::mapText(manager.outputToInput_); })
        .attribute("name", [](const ObjTupleManager& manager) { return manager.name(); });
}

Quil::Ptr<ObjTupleManager> objTupleManagerFactory(TableType tableType, std::uint64_t first, std::uint64_t last) {
    return Quil::makePtr<ObjTupleManager>(tableType, first, last);
}

}  // namespace L2Rib

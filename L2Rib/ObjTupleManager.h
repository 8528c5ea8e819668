// ObjTupleManager.h: hands out output object tuples of one table from a range of identifiers, and keeps the two-way
// mapping between a source's tuple and the output tuple made for it.
//
// Owner     The agent, one manager per table type.
// Threads   Event-loop thread.
// Errors    Misuse stops the process: mapping a tuple twice, deleting an unknown one, restoring at or above current,
//           exhausting the range. Identifiers only go up: one that was used is retired, never given to another object.
//
// Invariant: the two maps are inverses, and every output tuple in them has an identifier below current.
#pragma once

#include <unordered_map>

#include "L2Rib/Hash.h"
#include "L2Rib/ObjTupleAndSource.h"
#include "Quil/TypeRegistry.h"

namespace L2Rib {

namespace Util {
// The default tuple: no object.
constexpr ObjTuple objTupleInvalid() { return {}; }
}  // namespace Util

class L2RIB_EXPORT ObjTupleManager : public Quil::Entity {
 public:
    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<ObjTupleManager, NotifieeConst> {
     public:
        virtual void onCurrent() {}
        virtual void onInitialized() {}
        virtual void onInputToOutput(const ObjTupleAndSource&) {}
        virtual void onOutputToInput(const ObjTuple&) {}
    };

    // Identifiers first to last - 1 can be handed out; last never is.
    ObjTupleManager(TableType tableType, std::uint64_t first, std::uint64_t last);

    TableType tableType() const { return tableType_; }
    std::uint64_t first() const { return first_; }
    std::uint64_t last() const { return last_; }
    std::uint64_t current() const { return current_; }  // the next identifier to hand out
    bool initialized() const { return initialized_; }
    void currentIs(std::uint64_t current) { setAndNotify(current_, current, notifiees_, &NotifieeConst::onCurrent); }

    // The mapped tuple, or the invalid one.
    ObjTuple inputToOutput(const ObjTupleAndSource& otas) const;
    ObjTupleAndSource outputToInput(const ObjTuple& ot) const;

    ObjTuple newOutputOt(const ObjTupleAndSource& otas);  // maps a source tuple that is not mapped yet
    void delOutputOt(const ObjTuple& ot);
    // Enters a mapping known from before a restart of the owner, without a check for an existing one. Set current
    // first.
    void restoreMapping(const ObjTupleAndSource& otas, const ObjTuple& ot);

    // Begins the range. The constructor has done it: once more stops the process.
    void handleInitialized();

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<ObjTupleManager>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    template <class Map, class Key, class Value>
    static bool changes(Map& map, const Key& key, const Value& value);
    void inputToOutputIs(const ObjTupleAndSource& otas, const ObjTuple& ot);
    void outputToInputIs(const ObjTuple& ot, const ObjTupleAndSource& otas);

    const TableType tableType_;
    const std::uint64_t first_;
    const std::uint64_t last_;
    std::uint64_t current_ = 0;
    bool initialized_ = false;
    std::unordered_map<ObjTupleAndSource, ObjTuple, HashOf<ObjTupleAndSource>> inputToOutput_;
    std::unordered_map<ObjTuple, ObjTupleAndSource, HashOf<ObjTuple>> outputToInput_;
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
};

L2RIB_EXPORT Quil::Ptr<ObjTupleManager> objTupleManagerFactory(TableType tableType, std::uint64_t first,
                                                               std::uint64_t last);

}  // namespace L2Rib

// ObjTupleSet.h: a set of object tuples, each with a flag.
#pragma once

#include <unordered_map>

#include "L2Rib/Hash.h"
#include "L2Rib/ObjTuple.h"

namespace L2Rib {

class L2RIB_EXPORT ObjTupleSet {
 public:
    using Map = std::unordered_map<ObjTuple, bool, HashOf<ObjTuple>>;

    ObjTupleSet() = default;
    // There is no text to read a collection from: stops the process.
    [[noreturn]] explicit ObjTupleSet(const Quil::String& text);

    const Map& ot() const { return ot_; }
    void newOt(const ObjTuple& tuple, bool flag) { ot_[tuple] = flag; }
    void otDelAll() { ot_.clear(); }
    Map::const_iterator begin() const { return ot_.begin(); }
    Map::const_iterator end() const { return ot_.end(); }

    // The same members with the same flags.
    friend bool operator==(const ObjTupleSet& a, const ObjTupleSet& b) { return a.ot_ == b.ot_; }
    friend bool operator!(const ObjTupleSet& set) { return set.ot_.empty(); }

    void fwkAppendStrep(Quil::String& out) const;
    [[noreturn]] void fwkParseStrep(Quil::StrepCursor& cursor);
    // Each tuple and its flag, then a default tuple as terminator. A set that holds the default tuple cannot be
    // written: the process stops.
    void fwkWrite(Quil::AttrLogWriter& log) const;
    void fwkRead(Quil::AttrLogReader& log);

 private:
    Map ot_;
};

}  // namespace L2Rib

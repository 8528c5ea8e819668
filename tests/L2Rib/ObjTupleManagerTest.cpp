// The manager of output tuples: allocation, retirement, restoring, and the stops of misuse.
#include "L2Rib/ObjTupleManager.h"

#include "Quil/Trace.h"
#include "support/Support.h"

namespace {

using namespace L2Rib;

ObjTupleAndSource input(std::uint64_t id) { return {ObjTuple(ObjId(id), tableTypeDest), sourceBgp}; }
ObjTuple output(std::uint64_t id) { return {ObjId(id), tableTypeDest}; }

TEST(ObjTupleManager, MapsBothWaysAndRetiresIdentifiers) {
    const auto manager = objTupleManagerFactory(tableTypeDest, 1, 100);
    for (std::uint64_t id : {11, 12, 13}) manager->newOutputOt(input(id));
    EXPECT_EQ(manager->inputToOutput(input(12)), output(2));
    EXPECT_EQ(manager->outputToInput(output(3)), input(13));
    manager->delOutputOt(output(2));
    EXPECT_EQ(manager->inputToOutput(input(12)), Util::objTupleInvalid());
    EXPECT_EQ(manager->outputToInput(output(2)).objTuple(), Util::objTupleInvalid());
    EXPECT_EQ(manager->newOutputOt(input(12)), output(4));
    EXPECT_EQ(manager->name(), "tableTypeDest");
}

TEST(ObjTupleManager, RestoresBelowCurrent) {
    const auto manager = objTupleManagerFactory(tableTypeDest, 1, 100);
    manager->currentIs(10);
    manager->restoreMapping(input(1), output(9));
    EXPECT_EQ(manager->outputToInput(output(9)), input(1));
    EXPECT_EQ(manager->newOutputOt(input(2)), output(10));
}

TEST(ObjTupleManager, TracesWithItsSignatures) {
    std::string lines;
    Quil::Trace::sinkIs([&](const Quil::String&, int, const Quil::String& text) { lines += text + "\n"; });
    Quil::Trace::handler("L2Rib::ObjTupleManager").levelIs(9);
    const auto manager = objTupleManagerFactory(tableTypeDest, 1, 3);
    manager->newOutputOt(input(5));
    Quil::Trace::handler("L2Rib::ObjTupleManager").levelIs(0);
    EXPECT_EQ(lines,
              "void L2Rib::ObjTupleManager::handleInitialized() for tableTypeDest with first 1 and last 3\n"
              "const L2Rib::ObjTuple L2Rib::ObjTupleManager::newOutputOt(const L2Rib::ObjTupleAndSource&) for "
              "tableTypeDest input: (Dest 5 sourceBgp) output: (Dest 1)\n");
}

TEST(ObjTupleManagerDeathTest, MisuseStopsTheProcess) {
    const auto manager = objTupleManagerFactory(tableTypeDest, 1, 3);
    manager->newOutputOt(input(1));
    EXPECT_DEATH(manager->newOutputOt(input(1)),
                 "src-includes/L2Rib/L2RibUtil: .*`inputToOutput\\( otas \\) == Util::objTupleInvalid\\(\\)'");
    manager->newOutputOt(input(2));
    EXPECT_DEATH(manager->newOutputOt(input(3)), "newOutputOt.*`current\\(\\) <= last\\(\\)'");
    EXPECT_DEATH(manager->delOutputOt(ObjTuple()),
                 "`ot != Util::objTupleInvalid\\(\\) && ot.objId\\(\\) < current\\(\\)'");
    EXPECT_DEATH(manager->delOutputOt(output(3)), "ot.objId\\(\\) < current\\(\\)'");
    EXPECT_DEATH(manager->restoreMapping(input(4), output(3)), "`ot.objId\\(\\) < current\\(\\)'");
    manager->delOutputOt(output(1));
    EXPECT_DEATH(manager->delOutputOt(output(1)), "`otas.objTuple\\(\\) != Util::objTupleInvalid\\(\\)'");
}

struct Watcher : ObjTupleManager::NotifieeConst {
    std::string log;
    void onCurrent() override { log += Quil::cat("current ", notifier()->current(), ";"); }
    void onInputToOutput(const ObjTupleAndSource& otas) override { log += Quil::cat(otas, ";"); }
    void onOutputToInput(const ObjTuple& ot) override { log += Quil::cat(ot, ";"); }
};

TEST(ObjTupleManager, NotifiesOfWhatChanges) {
    const auto manager = objTupleManagerFactory(tableTypeDest, 1, 100);
    Watcher watcher;
    watcher.notifierIs(manager);
    manager->newOutputOt(input(5));
    manager->currentIs(2);  // no change, no call
    EXPECT_EQ(watcher.log, "current 2;(Dest 5 sourceBgp);(Dest 1);");
}

}  // namespace

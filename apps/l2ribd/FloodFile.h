// FloodFile: the merged flood sets as the agent before this one published them: l2rib/agent/flood-sets.json. Unlike the
// output tables they live in the memory of their process.
//
// Threads   Event-loop thread; a change is written within a second.
// Errors    What cannot be written is reported, and tried again with the next change.
#pragma once

#include <functional>

#include "L2Rib/FloodSetOutput.h"
#include "Quil/Clock.h"

class FloodFile : Quil::Clock::NotifieeConst {
 public:
    using Report = std::function<void(const Quil::String&)>;

    FloodFile(const Quil::Ptr<const Quil::Clock>& clock, const Quil::String& directory,
              Quil::Ptr<L2Rib::FloodSetOutput> floodSets, Report report);

    // Fills the flood sets with what the file says. The range exception, with the file, for one that is damaged;
    // nothing is filled then.
    void read() const;
    // They may have changed.
    void changed();
    // What has changed, without waiting.
    void writeNow();

 private:
    static constexpr Quil::Seconds delay = 1;
    void onTime() override { writeNow(); }

    const Quil::String path_;
    const Quil::Ptr<L2Rib::FloodSetOutput> floodSets_;
    const Report report_;
    bool isToBeWritten_ = false;
};

// Program.h: how a program of ours begins and ends: a usage error and any other error are one line on stderr and
// status 2.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <set>

#include "Quil/Trace.h"

namespace Apps {

inline int runProgram(const char* name, CLI::App& app, int argc, char** argv, const std::function<void()>& run) {
    try {
        app.parse(argc, argv);
        run();
        return 0;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        std::cerr << name << ": " << error.what() << std::endl;
    } catch (const std::exception& error) {
        std::cerr << name << ": " << error.what() << std::endl;
    }
    return 2;
}

// The lines of these trace handles up to level 3 (what went wrong) are said, whatever L2RIB_TRACE asks for.
inline void alwaysSaid(const std::set<Quil::String>& handles, void (*say)(const Quil::String&)) {
    for (const auto& name : handles) {
        Quil::Trace& trace = Quil::Trace::handler(name);
        if (!trace.enabled(3)) trace.levelIs(3);
    }
    Quil::Trace::sinkIs([handles, say](const Quil::String& name, int level, const Quil::String& text) {
        if (handles.contains(name)) return say(text);
        std::cerr << name << "/" << level << ": " << text << std::endl;
    });
}

}  // namespace Apps

// Program.h: how a program of ours begins and ends: a usage error and any other error are one line on stderr and
// status 2.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>

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

}  // namespace Apps

// RunTool.h - runs the built ember-tide and captures what it printed and its exit status.
#pragma once

#include <string>
#include <vector>

struct ToolRun {
    int status = -1; // exit status, or -1 when killed by a signal
    std::string out;
    std::string err;
};

ToolRun runTool(const std::vector<std::string>& args);

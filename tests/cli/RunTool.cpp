// RunTool.cpp - a child process with stdout and stderr sent to files.
#include "RunTool.h"

#include "TestSupport.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

ToolRun runTool(const std::vector<std::string>& args) {
    testing_support::TempFolder folder;
    std::string outPath = folder.path("out"), errPath = folder.path("err");
    std::vector<char*> argv;
    std::string tool = ET_TOOL_PATH;
    argv.push_back(tool.data());
    std::vector<std::string> copies = args;
    for (auto& a : copies) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ToolRun run;
    pid_t pid;
    if (posix_spawn(&pid, tool.c_str(), &actions, nullptr, argv.data(), environ) == 0) {
        int status;
        waitpid(pid, &status, 0);
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    auto out = testing_support::readFile(outPath), err = testing_support::readFile(errPath);
    run.out.assign(out.begin(), out.end());
    run.err.assign(err.begin(), err.end());
    return run;
}

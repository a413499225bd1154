// RunTool.h - runs the built ember-tide (or any program) and captures what it printed and its
// exit status; writes documents around a given picture; the folder every command test works in.
#pragma once

#include "TestSupport.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

struct ToolRun {
    int status = -1; // exit status, or -1 when killed by a signal
    int signal = 0;  // the signal that killed it, or 0
    std::string out;
    std::string err;
    testing_support::Bytes outBytes() const { return {out.begin(), out.end()}; }
};

// Runs the tool with `args`, through /bin/sh when there is a `setup` (a ulimit, a cd) to run first.
ToolRun runTool(const std::vector<std::string>& args, const std::string& setup = "");

// Starts argv (argv[0] looked up in PATH) with stdout and stderr sent to files; -1 on failure.
pid_t startProcess(const std::vector<std::string>& argv, const std::string& out,
                   const std::string& err);
// Waits for `pid` and reads what it wrote to `out` and `err`.
ToolRun finishProcess(pid_t pid, const std::string& out, const std::string& err);

// Writes a document at `path` (making its folders) holding `picture` as a preview of `kind`
// whose stated size is `width` x `height`, whatever the picture's own, and information `info`.
void writeDocument(const std::string& path, const testing_support::Bytes& picture, int kind = 2,
                   int width = 64, int height = 48, int info = 0);

// Sets an environment variable for the tools started while it lives.
struct ScopedVariable {
    ScopedVariable(const char* name, const std::string& value) : name(name) {
        ::setenv(name, value.c_str(), 1);
    }
    ~ScopedVariable() { ::unsetenv(name); }
    const char* name;
};

// A folder holding pic.jpg (an opaque 64 x 48 JPEG) and pic.png (a transparent 40 x 30 PNG),
// with the desktop's cache kept inside it (cache/).
class ToolTest : public testing::Test {
protected:
    ToolTest();
    std::string path(const std::string& name) const { return folder.path(name); }
    // The sorted names in the folder that are neither in `inputs` nor in `also`: outputs, backups
    // or temporary files left behind.
    std::string strays(const std::set<std::string>& also = {}) const;
    // `line`'s words, each "@name" in them made path(name) ("file://@a.etd" too).
    std::vector<std::string> words(const std::string& line) const;
    // Runs the tool (after `setup`) and expects its exit status and `said` in its stderr.
    ToolRun expectRun(const std::vector<std::string>& args, int status,
                      const std::string& said = "", const std::string& setup = "") const;
    ToolRun expectRun(const std::string& line, int status, const std::string& said = "",
                      const std::string& setup = "") const {
        return expectRun(words(line), status, said, setup);
    }

    testing_support::TempFolder folder;
    testing_support::Bytes jpeg, png;
    std::set<std::string> inputs = {"pic.jpg", "pic.png"};
    ScopedVariable cacheHome;
};

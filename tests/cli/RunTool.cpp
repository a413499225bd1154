// RunTool.cpp - child processes with stdout and stderr sent to files; the command tests' folder.
#include "RunTool.h"

#include "FileTestSupport.h"
#include "SampleImages.h"
#include "thumbnail/EmberTideDocumentWriter.h"

#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>

extern char** environ;

using namespace testing_support;

pid_t startProcess(const std::vector<std::string>& argv, const std::string& out,
                   const std::string& err) {
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str())); // spawn only reads them
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    if (posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

ToolRun finishProcess(pid_t pid, const std::string& out, const std::string& err) {
    ToolRun run;
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid) {
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    run.out = file_test::readText(out);
    run.err = file_test::readText(err);
    return run;
}

ToolRun runTool(const std::vector<std::string>& args, const std::string& setup) {
    TempFolder folder;
    std::vector<std::string> argv = {ET_TOOL_PATH};
    if (!setup.empty())
        argv.insert(argv.begin(), {"/bin/sh", "-c", setup + " && exec \"$0\" \"$@\""});
    argv.insert(argv.end(), args.begin(), args.end());
    return finishProcess(startProcess(argv, folder.path("out"), folder.path("err")),
                         folder.path("out"), folder.path("err"));
}

void writeDocument(const std::string& path, const Bytes& picture, int kind, int width, int height,
                   int info) {
    EmberTidePreview preview;
    preview.bytes = toDynaArray(picture);
    preview.kind = kind;
    preview.infoValue = info;
    preview.size = {width, height};
    MemoryFile m;
    ASSERT_EQ(EmberTideWriteDocument(&m.file, preview, EmberTideDocumentOptions()), 0);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    writeFile(path, m.bytes());
}

ToolTest::ToolTest()
    : jpeg(samples::encodeJPEG(samples::drawLandscape(64, 48, false), 85)),
      png(samples::encodePNG(samples::drawLandscape(40, 30, true))),
      cacheHome("XDG_CACHE_HOME", folder.path("cache")) {
    writeFile(path("pic.jpg"), jpeg);
    writeFile(path("pic.png"), png);
}

std::string ToolTest::strays(const std::set<std::string>& also) const {
    std::string list;
    for (const auto& name : file_test::listing(folder.root()))
        if (!inputs.count(name) && !also.count(name)) list += name + " ";
    return list;
}

std::vector<std::string> ToolTest::words(const std::string& line) const {
    std::vector<std::string> args;
    std::istringstream in(line);
    for (std::string w; in >> w;)
        args.push_back(w.find('@') == std::string::npos
                           ? w
                           : w.substr(0, w.find('@')) + path(w.substr(w.find('@') + 1)));
    return args;
}

ToolRun ToolTest::expectRun(const std::vector<std::string>& args, int status,
                            const std::string& said, const std::string& setup) const {
    ToolRun r = runTool(args, setup);
    std::string line;
    for (const auto& a : args)
        line += a + " ";
    EXPECT_EQ(r.status, status) << line << ": signal " << r.signal << ": " << r.err;
    EXPECT_NE(r.err.find(said), std::string::npos) << line << ": " << r.err;
    return r;
}

// MemoryAndDisk.h - runs a reader of crafted bytes on a memory file and on a file on disk.
//
// The stdio worker seeks past the end where the memory worker refuses, so a reader of hostile
// bytes must not rely on a seek to fail: every crafted case is read both ways. A reader that loops
// forever would hang the whole suite; an alarm ends the process with a message instead.
#pragma once

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <unistd.h>

namespace testing_support {

// Runs `check` on `bytes` in both files. With `byteForm`, the bytes are preceded by the smallest
// object table with 64-bit positions (version 512, offset 0, no entries), which is what selects
// the byte form, and `check` starts after the table's header and its entry count.
inline void onMemoryAndDisk(const Bytes& bytes, bool byteForm,
                            const std::function<void(GSFile&)>& check) {
    std::signal(SIGALRM, [](int) {
        const char message[] = "\na reader did not come back within 20 s\n";
        (void)!::write(2, message, sizeof message - 1);
        std::_Exit(1);
    });
    ::alarm(20);
    struct Disarm {
        ~Disarm() { ::alarm(0); }
    } disarm;
    Bytes content = byteForm ? fromHex("02 00 00 00 00 00 00 00 00 00 00 00 00 00") : Bytes();
    content.insert(content.end(), bytes.begin(), bytes.end());
    TempFolder folder;
    writeFile(folder.path("input.etd"), content);
    MemoryFile m(content);
    GSFile disk(GSFileSpec(GSString(folder.path("input.etd").c_str(), -1, GSString::kUTF8)), 0);
    ASSERT_EQ(disk.open(), 0);
    for (GSFile* f : {&m.file, &disk}) {
        SCOPED_TRACE(f == &disk ? "file on disk" : "memory file");
        if (byteForm) {
            ASSERT_FALSE(f->startObjectMergingRead() || !f->getUse64Bit() || f->seek(4, 1));
        }
        check(*f);
    }
}

} // namespace testing_support

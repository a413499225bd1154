// GSFileSpecChanges.cpp - the operations of a file spec that change the disk: remove, rename and
// the exchange that finishes a safe save.
//
// All three go through the file-system layer (GSURL.h) and report a status with the platform's
// error text; nothing here logs or reports to the user, which is the caller's business. The
// exchange is the one atomic step of a safe save: the new content, written completely under a
// hidden name beside the target, takes the target's place, and the old content is either gone
// or lies under the new content's former name, from where the caller turns it into a backup.
#include "storage/GSFileSpec.h"
#include "storage/GSAtomicFile.h"
#include "storage/GSFileState.h"
#include "storage/GSURL.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The spec's URL held by reference; empty when none can be made.
GSIdPointer urlOf(const GSFileSpec& spec) {
    GSIdPointer held;
    held = const_cast<void*>(static_cast<const void*>(spec.createCFURLRef()));
    return held;
}

} // namespace

short GSFileSpec::remove(GSString* detail) const {
    GSString text;
    GSIdPointer item = urlOf(*this);
    short status = item.isEmpty() ? 1 : GSURLRemove(item.get(), &text);
    if (detail) *detail = text;
    return status;
}

short GSFileSpec::rename(const GSString& newName, GSString* detail) {
    GSString text;
    GSFileSpec moved(*this);
    moved.setFilename(newName);
    GSIdPointer from = urlOf(*this);
    GSIdPointer to = urlOf(moved);
    short status = from.isEmpty() || to.isEmpty() ? 1 : GSURLMoveToURL(from.get(), to.get(), &text);
    if (status == 0) *this = moved;
    if (detail) *detail = text;
    return status;
}

short GSFileSpec::exchangeWith(const GSFileSpec& target, short removeOld, GSString* detail) {
    GSString text;
    GSIdPointer replacement = urlOf(*this);
    GSIdPointer old = urlOf(target);

    // Keeping the old content takes a free hidden name for the platform to leave it under. The
    // platform puts that item in the target's folder, so the name is probed there. For a file
    // the name is taken by creating an empty file there exclusively, which the old content then
    // replaces: another process saving beside us cannot pick the same name in between.
    GSFileSpec backup;
    GSString backupName;
    bool reserved = false;
    if (!removeOld) {
        target.copyData(&backup, 0);
        GSFileState kind;
        if (fillState(&kind) == 0 && !(kind.flags & GSFileState::kFolder)) {
            int fd = backup.createTemporaryFile(GSString(), O_WRONLY);
            if (fd < 0) {
                if (detail) *detail = GSString(GSErrorText(errno).c_str());
                return 1;
            }
            ::close(fd);
            reserved = true;
        } else {
            backup.createTemporaryFilename(GSString());
        }
        backupName = backup.getFilename(1);
    }

    GSFileState before;
    short hadState = old.isEmpty() ? 0 : GSURLFillFileState(old.get(), &before) == 0;
    short status = replacement.isEmpty() || old.isEmpty()
                       ? 1
                       : GSURLReplaceWithURL(old.get(), replacement.get(), backupName, &text);

    // The replaced item keeps the old one's visibility (where hiddenness is an attribute and
    // not the name, the new item brings its own). Failures here change nothing that matters.
    if (hadState) {
        GSFileState after;
        if (GSURLFillFileState(old.get(), &after) == 0 &&
            ((after.flags ^ before.flags) & GSFileState::kHidden)) {
            after.flags = static_cast<unsigned char>((after.flags & ~GSFileState::kHidden) |
                                                     (before.flags & GSFileState::kHidden));
            GSURLSetFileState(old.get(), after, nullptr);
        }
    }

    if (reserved && status != 0) backup.remove(nullptr);

    // The old content moves from the hidden name to this spec's own, which the new content
    // has just left. Within one folder that is a rename to this spec's file name. That name was
    // free for a moment, and the rename never replaces: should another process have taken it,
    // the old content stays where it is and this spec names it there.
    if (!removeOld && status == 0) {
        GSIdPointer kept = urlOf(backup);
        if (kept.isEmpty()) {
            status = 1;
        } else if (GSURLMoveToURL(kept.get(), replacement.get(), &text) != 0) {
            setCFURLRef(static_cast<const __CFURL*>(kept.get()));
            text = GSString();
        }
    }
    if (detail) *detail = text;
    return status;
}

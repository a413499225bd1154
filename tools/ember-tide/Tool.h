// Tool.h - the subcommands of ember-tide, and everything they share.
//
// main.cpp dispatches to one run function per subcommand, each in a file of its own, which takes
// the subcommand's arguments (argv[0] is the subcommand) and returns the exit status. What they
// share lies in a file per concept, all included here: messages and exit statuses (Messages.h),
// the preview look-up (DocumentPreview.h), document versions and layout options
// (DocumentLayout.h), and output files with the safe save of documents (OutputFiles.h).
#pragma once

#include "DocumentLayout.h"
#include "DocumentPreview.h"
#include "Messages.h"
#include "OutputFiles.h"

namespace tool {

int runInfo(int argc, char** argv);
int runExtract(int argc, char** argv);
int runCreate(int argc, char** argv);
int runConvert(int argc, char** argv);
int runThumbnail(int argc, char** argv);
int runCache(int argc, char** argv);

} // namespace tool

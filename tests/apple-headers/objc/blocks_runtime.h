// blocks_runtime.h - the two block-runtime entry points GNUstep's headers expect from an
// Objective-C 2 runtime. Debian's GNUstep is built on GCC's runtime, which has no such header;
// for the Linux syntax check only (syntax-check.sh).
#pragma once

extern "C" {

void* _Block_copy(const void* block);
void _Block_release(const void* block);
}

#!/usr/bin/env bash
# syntax-check.sh - the Linux check of the macOS sources (src/*/*_apple.mm, ThumbnailProvider.mm):
# syntax and types only, with clang (-fsyntax-only, ARC, blocks, our warnings as errors) against
# GNUstep's Foundation and the declarations beside this script of what Apple's SDK has and GNUstep
# lacks. It proves that it can fail by compiling copies with one deliberate fault each, which must
# all be rejected; then it generates the Apple branch of CMakeLists.txt with CMake's Darwin
# platform files and checks the bundle descriptions in packaging/macos/ (check_packaging.py).
# Installs nothing (`make deps-apple-check` does); exits 0 with "skipped: ..." without clang or
# GNUstep's headers.
#
# Debian's GNUstep is built on GCC's Objective-C runtime, whose headers need two shims before
# clang accepts them under ARC: objc/blocks_runtime.h (kept here) and a copy of GCC's
# objc/runtime.h in which `Protocol **` becomes `Protocol * __unsafe_unretained *` and the one
# object->class_pointer access is bridged. The copy is made from the installed header at each
# run, so it always matches the rest of that runtime.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
clang=$(command -v clang++) || { echo "skipped: clang++ not found"; exit 0; }
gnustep=/usr/include/GNUstep
gcc_runtime=$(find /usr/lib/gcc -path '*/include/objc/runtime.h' 2>/dev/null | sort -V | tail -n 1)
if [ ! -f "$gnustep/Foundation/Foundation.h" ] || [ -z "$gcc_runtime" ]; then
  echo "skipped: GNUstep's Foundation or GCC's Objective-C runtime headers not found (libgnustep-base-dev)"
  exit 0
fi
gcc_include=$(dirname "$(dirname "$gcc_runtime")")

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# The ARC-clean copy of GCC's runtime header. Each edit must have happened, or the shim no
# longer fits the installed runtime and the check would mean nothing.
mkdir -p "$tmp/shim/objc"
sed -e 's|^#include "objc.h"|#include <objc/objc.h>|' \
    -e 's|^#include "objc-decls.h"|#include <objc/objc-decls.h>|' \
    -e 's|Protocol \*\*|Protocol * __unsafe_unretained *|g' \
    -e 's|return object->class_pointer;|return ((struct objc_object *)(__bridge void *)object)->class_pointer;|' \
    "$gcc_runtime" >"$tmp/shim/objc/runtime.h"
if grep -q 'Protocol \*\*\|return object->class_pointer\|#include "objc' "$tmp/shim/objc/runtime.h" ||
   ! grep -q '__bridge void \*)object)->class_pointer' "$tmp/shim/objc/runtime.h"; then
  echo "error: $gcc_runtime no longer has the shape the ARC shim expects; update $0" >&2
  exit 1
fi

flags=(
  -fsyntax-only -x objective-c++ -std=c++20
  -fobjc-arc -fblocks -fobjc-runtime=gnustep-2.0 -fexceptions -fobjc-exceptions
  -fconstant-string-class=NSConstantString -fapplication-extension
  -DGNUSTEP -DGNUSTEP_BASE_LIBRARY=1 -DGNU_RUNTIME=1 -D_NATIVE_OBJC_EXCEPTIONS
  -DGS_APPLE_SYNTAX_CHECK=1
  -isystem "$tmp/shim" -isystem "$here" -isystem "$gnustep" -idirafter "$gcc_include"
  -I "$root/src" -I "$root/src/text" -I "$root/src/objects" -I "$root/src/fileformat"
  -I "$root/src/storage" -I "$root/src/thumbnail"
  -Wall -Wextra -Wpedantic -Werror
)

passed=0
failed=0
pass() { echo "passed: $*"; passed=$((passed + 1)); }
fail() { echo "FAILED: $*"; failed=$((failed + 1)); }

for source in src/storage/GSURL_apple.mm src/text/GSString_apple.mm src/thumbnail/ThumbnailProvider.mm; do
  if "$clang" "${flags[@]}" "$root/$source" >"$tmp/out" 2>&1; then
    pass "$source"
  else
    fail "$source"
    cat "$tmp/out"
  fi
done

# expect_rejected SOURCE DESCRIPTION SED-EXPRESSION: a copy of SOURCE with one fault must fail.
expect_rejected() {
  local source=$1 description=$2 edit=$3
  local copy="$tmp/mutant-$(basename "$source")"
  sed -e "$edit" "$root/$source" >"$copy"
  if cmp -s "$copy" "$root/$source"; then
    fail "self-check '$description' no longer applies to $source (update $0)"
  elif "$clang" "${flags[@]}" "$copy" >"$tmp/out" 2>&1; then
    fail "the check accepted $source with $description"
  else
    pass "rejected as it should be: $source with $description: $(grep -m1 'error:' "$tmp/out" | sed 's|.*error: ||')"
  fi
}

provider=src/thumbnail/ThumbnailProvider.mm
url=src/storage/GSURL_apple.mm
string=src/text/GSString_apple.mm
expect_rejected $provider "a wrong QuickLook selector" 's/replyWithContextSize:/replyWithContextSizes:/'
expect_rejected $provider "the completion handler called with one argument" 's/handler(reply, nil);/handler(reply);/'
expect_rejected $provider "a data provider where an image belongs" 's/CGImageGetWidth(image.get())/CGImageGetWidth(provider.get())/'
expect_rejected $provider "a plain int for the rendering intent" '0,/kCGRenderingIntentPerceptual/s//3/'
expect_rejected $provider "an object pointer cast without __bridge" 's/(__bridge void\*)request.fileURL/(void*)request.fileURL/'
expect_rejected $url "a wrong NSURL selector" 's/URLByResolvingSymlinksInPath/URLByResolvingSymLinksInPath/'
expect_rejected $url "a wrong argument type for initFileURLWithPath:" 's/initFileURLWithPath:text/initFileURLWithPath:path/'
expect_rejected $url "a wrong NSURL resource selector" 's/setResourceValues:values/setResourceValue:values/'
expect_rejected $url "an opaque handle where the file manager takes a URL" 's/replaceItemAtURL:old/replaceItemAtURL:target/'
expect_rejected $url "a flag where the bookmark resolution takes a pointer" 's/bookmarkDataIsStale:&stale/bookmarkDataIsStale:stale/'
expect_rejected $string "a platform string returned without a bridged cast" 's/(__bridge_transfer NSString\*)createCFStringRef()/createCFStringRef()/'
expect_rejected $string "characters where Core Foundation takes bytes" 's/reinterpret_cast<const UInt8\*>(bytes ? bytes : "")/bytes ? bytes : ""/'
expect_rejected $string "a GSString where the platform string belongs" 's/CFStringGetLength(text)/CFStringGetLength(this)/'

# The Apple branch of CMakeLists.txt, generated with CMake's Darwin platform files (no compiler
# is run: the compiler checks are declared passed). This catches errors in the branch itself and
# gives the bundles' filled-in Info.plists to the packaging check.
darwin=(
  -DCMAKE_SYSTEM_NAME=Darwin -DET_BUILD_TESTS=OFF
  -DCMAKE_C_COMPILER="$(command -v clang || echo cc)" -DCMAKE_CXX_COMPILER="$clang"
  -DCMAKE_OBJCXX_COMPILER="$clang"
  -DCMAKE_C_COMPILER_WORKS=1 -DCMAKE_CXX_COMPILER_WORKS=1 -DCMAKE_OBJCXX_COMPILER_WORKS=1
  -DCMAKE_INSTALL_NAME_TOOL="$(type -P true)"
)
multiarch=$(gcc -print-multiarch 2>/dev/null || true)
[ -z "$multiarch" ] || darwin+=(-DCMAKE_LIBRARY_ARCHITECTURE="$multiarch")
link="$tmp/darwin/CMakeFiles/EmberTideThumbnailExtension.dir/link.txt"
packaging=("$root")
if ! cmake -S "$root" -B "$tmp/darwin" -G "Unix Makefiles" "${darwin[@]}" >"$tmp/out" 2>&1; then
  fail "the Apple branch of CMakeLists.txt does not generate"
  tail -n 20 "$tmp/out"
elif ! grep -q -- '-Wl,-e,_NSExtensionMain' "$link" || ! grep -q -- '-fapplication-extension' "$link" ||
     ! grep -q -- '-framework QuickLookThumbnailing' "$link"; then
  fail "the extension is not linked as an app extension: $(cat "$link")"
else
  pass "the Apple branch of CMakeLists.txt generates the extension and its host"
  packaging+=("$tmp/darwin")
fi
if python3 "$here/check_packaging.py" "${packaging[@]}"; then
  passed=$((passed + 1))
else
  failed=$((failed + 1))
fi

echo "apple-syntax-check: $passed passed, $failed failed"
[ "$failed" -eq 0 ]

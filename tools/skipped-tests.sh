#!/usr/bin/env bash
# Says which tests ctest skipped and why, after `make test`: a test that cannot run on this
# machine (a desktop's packages missing, a sandbox the kernel refuses) exits 77, which ctest
# counts as neither passed nor failed and lists without a reason. The reason is the test's own
# "SKIPPED: ..." line, which ctest keeps in its JUnit report.
# Usage: tools/skipped-tests.sh [--fail] JUNIT_XML   (--fail: exit 1 when any test was skipped,
# for CI, where every desktop must be proven)
set -euo pipefail
fail=0
if [ "$1" = --fail ]; then fail=1; shift; fi
report=$1
[ -f "$report" ] || exit 0

awk -v fail=$fail '
  function text(s) {
    gsub(/&lt;/, "<", s); gsub(/&gt;/, ">", s); gsub(/&quot;/, "\"", s); gsub(/&apos;/, "\047", s)
    gsub(/&amp;/, "\\&", s); return s
  }
  /<testcase / {
    match($0, /name="[^"]*"/); name = text(substr($0, RSTART + 6, RLENGTH - 7))
    skipped = 0; output = 0; why = ""
  }
  /<skipped/ { skipped = 1 }
  /<system-out>/ { output = 1; sub(/.*<system-out>/, "") }
  output && why == "" && /SKIPPED/ { why = $0; sub(/^.*SKIPPED:? */, "", why) }
  /<\/system-out>/ { output = 0 }
  /<\/testcase>/ && skipped { lines[++count] = "  " name ": " text(why == "" ? "no reason given" : why) }
  END {
    if (!count) exit
    print "Skipped (" count "), so not proven on this machine:"
    for (i = 1; i <= count; i++) print lines[i]
    if (fail) exit 1
  }
' "$report"

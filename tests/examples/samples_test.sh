#!/usr/bin/env bash
# The quick start's demo, on a test build: the committed sample documents are exactly what
# make-examples and `ember-tide create` make today (the writer has not drifted from them), and
# the demo script thumbnails every one of them and composes the contact sheet.
# Usage: samples_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
cd "$2"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
EXAMPLES_OUT="$out/examples" bash tools/make-examples.sh "$build" >/dev/null
diff -r examples "$out/examples"
DEMO_OUT="$out/demo" bash tools/demo.sh "$build" 128 | tee "$out/log"
# The selection and the document without a preview give none; every other document one.
[ "$(grep -c ' none ' "$out/log")" -eq 2 ] && [ "$(grep -c ' ms$' "$out/log")" -eq 9 ]
[ -s "$out/demo/contact-sheet.png" ]

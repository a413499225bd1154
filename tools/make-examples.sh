#!/usr/bin/env bash
# Regenerates examples/: pictures drawn by make-examples (a sunset, a lighthouse, a translucent
# disc), wrapped into documents by `ember-tide create` in every version, chunk form and way of
# storing the preview; make-examples itself writes the two that `create` cannot make (a preview
# behind a large item, and a document without a preview).
# Usage: tools/make-examples.sh [BUILD_DIR]   (default build/dev)
set -euo pipefail
build=${1:-build/dev}
tool="$build/ember-tide"
out=${EXAMPLES_OUT:-examples} # the tests make them elsewhere, to compare
mkdir -p "$out"
images=$(mktemp -d)
trap 'rm -rf "$images"' EXIT
rm -f "$out"/*.etd
"$build/make-examples" "$images" "$out"
"$tool" create --version 2.0 --store inline "$images/landscape.jpg" "$out"/landscape-v2-inline.etd
"$tool" create --version 2.0 --store inline "$images/transparent.png" "$out"/transparent-v2-png.etd
"$tool" create --version 2.0 --store record "$images/tall.jpg" "$out"/tall-v2-record.etd
"$tool" create --version 3.0 --form long --store record "$images/landscape.jpg" "$out"/landscape-v3-long-record.etd
"$tool" create --version 3.2 --form long --store system-record "$images/transparent.png" "$out"/transparent-v3-long-system-record.etd
"$tool" create --version 3.2 --form byte --store inline "$images/transparent.png" "$out"/transparent-v3-byte-inline.etd
"$tool" create --version 3.2 --form byte --store record "$images/tall.jpg" "$out"/tall-v3-byte-record.etd
"$tool" create --version 3.2 --form byte --store system-record "$images/landscape.jpg" "$out"/landscape-v3-byte-system-record.etd
"$tool" create --version 2.0 --selection "$images/landscape.jpg" "$out"/selection-v2.etd
ls "$out"

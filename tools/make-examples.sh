#!/usr/bin/env bash
# Regenerates examples/: pictures drawn by make-examples (a sunset, a lighthouse, a translucent
# disc), wrapped into documents by `ember-tide create` in every version, chunk form and way of
# storing the preview; make-examples itself writes the two that `create` cannot make (a preview
# behind a large item, and a document without a preview).
# Usage: tools/make-examples.sh [BUILD_DIR]   (default build/dev)
set -euo pipefail
build=${1:-build/dev}
tool="$build/ember-tide"
images=$(mktemp -d)
trap 'rm -rf "$images"' EXIT
rm -f examples/*.etd
"$build/make-examples" "$images" examples
"$tool" create --version 2.0 --store inline "$images/landscape.jpg" examples/landscape-v2-inline.etd
"$tool" create --version 2.0 --store inline "$images/transparent.png" examples/transparent-v2-png.etd
"$tool" create --version 2.0 --store record "$images/tall.jpg" examples/tall-v2-record.etd
"$tool" create --version 3.0 --form long --store record "$images/landscape.jpg" examples/landscape-v3-long-record.etd
"$tool" create --version 3.2 --form long --store system-record "$images/transparent.png" examples/transparent-v3-long-system-record.etd
"$tool" create --version 3.2 --form byte --store inline "$images/transparent.png" examples/transparent-v3-byte-inline.etd
"$tool" create --version 3.2 --form byte --store record "$images/tall.jpg" examples/tall-v3-byte-record.etd
"$tool" create --version 3.2 --form byte --store system-record "$images/landscape.jpg" examples/landscape-v3-byte-system-record.etd
"$tool" create --version 2.0 --selection "$images/landscape.jpg" examples/selection-v2.etd
ls examples

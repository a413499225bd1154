#!/usr/bin/env bash
# The Debian packages on this machine: `make package` builds them, dpkg installs them, GNOME's
# factory thumbnails a document through the installed tool, .thumbnailer and MIME type (which
# shared-mime-info's trigger must have registered), bash completes from the installed script,
# then dpkg removes them and neither a file of theirs nor the type may remain.
# Usage: package_test.sh SOURCE_DIR. It changes the machine, so it runs only when asked
# (ET_PACKAGE_TEST=1, which `ctest --preset package` sets) and as root; otherwise it exits 77
# (skipped).
set -euo pipefail
source_dir=$(cd "$1" && pwd)
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAIL: $*"; exit 1; }
[[ ${ET_PACKAGE_TEST:-} == 1 ]] || skip "installs packages: run it with ctest --preset package"
[[ $(id -u) == 0 ]] || skip "installing packages needs root"
command -v dpkg >/dev/null || skip "dpkg is missing"
if [[ -e /usr/bin/ember-tide ]] && ! dpkg -S /usr/bin/ember-tide >/dev/null 2>&1; then
  skip "/usr/bin/ember-tide is there and belongs to no package: left alone"
fi

make -C "$source_dir" package
debs=("$source_dir"/build/package/*.deb)
packages=($(for deb in "${debs[@]}"; do dpkg-deb -f "$deb" Package; done))
trap 'dpkg -r "${packages[@]}" >/dev/null 2>&1 || true' EXIT
dpkg -i "${debs[@]}"
files=$(dpkg -L "${packages[@]}" | while read -r f; do [[ -f $f ]] && echo "$f"; done)

# A document without its .etd name is typed by its first bytes, from the system's database only.
work=$(mktemp -d)
trap 'dpkg -r "${packages[@]}" >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
cp "$source_dir/examples/landscape-v2-inline.etd" "$work/landscape"
content_type() {
  HOME=$work XDG_DATA_HOME=$work/data XDG_DATA_DIRS=/usr/share /usr/bin/python3 -c 'import sys
from gi.repository import Gio
print(Gio.File.new_for_path(sys.argv[1]).query_info("standard::content-type", 0, None).get_content_type())' "$1"
}
type=$(content_type "$work/landscape")
[[ $type == application/x-ember-tide-document ]] || fail "installed, the document is typed $type"

/usr/bin/python3 "$source_dir/tests/desktop/gnome_factory_test.py" --installed "$source_dir"

# Every option that the installed tool's usage texts name is in its manual page.
manual=$(zcat /usr/share/man/man1/ember-tide.1.gz | sed 's/\\-/-/g')
for command in "" thumbnail cache info extract create convert; do
  for option in $(/usr/bin/ember-tide $command --help | grep -oE -- '--[a-z-]+' | sort -u); do
    grep -qe "$option" <<<"$manual" || fail "the manual page does not name ${command:-ember-tide} $option"
  done
done

completions=$(bash -c 'source /usr/share/bash-completion/bash_completion
  source /usr/share/bash-completion/completions/ember-tide
  COMP_WORDS=(ember-tide cache --size ""); COMP_CWORD=3; COMP_LINE="ember-tide cache --size "
  COMP_POINT=${#COMP_LINE}; _ember_tide ember-tide "" --size; echo "${COMPREPLY[*]}"')
[[ $completions == "normal large x-large xx-large" ]] || fail "cache --size completes to '$completions'"

dpkg -r "${packages[@]}"
left=$(for f in $files; do [[ -e $f ]] && echo "$f"; done || true)
[[ -z $left ]] || fail "left after dpkg -r: $left"
type=$(content_type "$work/landscape")
[[ $type != application/x-ember-tide-document ]] || fail "the type is still known after dpkg -r"
echo "PASS: ${packages[*]} installed, thumbnailed through GNOME's factory, completed, removed clean"

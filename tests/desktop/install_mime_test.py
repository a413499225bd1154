#!/usr/bin/python3
"""An install registers our MIME type: GIO, which file managers ask, recognises our documents.

Usage: install_mime_test.py CMAKE BUILD_DIR SOURCE_DIR

`cmake --install BUILD_DIR --prefix P` into a temporary P must leave a MIME database with which,
with XDG_DATA_DIRS=P/share alone, GIO types a document by its name and, under a name that says
nothing, by its first bytes. Skipped (77) without python3-gi or update-mime-database.
"""
import os
import shutil
import sys
import tempfile

from desktop_support import MIME, check, gi_repository, install, skip, verdict


def main():
    cmake, build, source = sys.argv[1:4]
    if not shutil.which("update-mime-database"):
        skip("update-mime-database is not installed (shared-mime-info)")
    Gio = gi_repository(Gio="2.0").Gio
    head = lambda sample: open(os.path.join(source, "examples", sample), "rb").read(4096)  # noqa: E731
    with tempfile.TemporaryDirectory(prefix="et-install-") as work:
        install(cmake, build, work + "/prefix")
        # GIO reads the data folders at its first question, so they are set before it is asked.
        os.environ.update(XDG_DATA_DIRS=work + "/prefix/share", XDG_DATA_HOME=work)
        for name, file_name, data, expected in [  # the file's name, the bytes GIO may sniff, its type
                ("by name", "landscape.etd", None, MIME),
                ("by content", "landscape", head("landscape-v3-byte-system-record.etd"), MIME),
                ("a selection by content", "selection", head("selection-v2.etd"),
                 "application/x-ember-tide-selection"),
                ("our words in a text", "notes", b"Ember Tide Document notes\n", "text/plain")]:
            got = Gio.content_type_guess(file_name, data)[0]
            check(got == expected, "%s: %s -> %s, expected %s" % (name, file_name, got, expected))
    return verdict("GIO types our documents by name and by content")


if __name__ == "__main__":
    sys.exit(main())

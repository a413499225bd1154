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

from desktop_support import gi_repository, install, skip

DOC, SEL = "application/x-ember-tide-document", "application/x-ember-tide-selection"


def main():
    cmake, build, source = sys.argv[1:4]
    if not shutil.which("update-mime-database"):
        skip("update-mime-database is not installed (shared-mime-info)")
    Gio = gi_repository(Gio="2.0").Gio
    work = tempfile.mkdtemp(prefix="et-install-")
    try:
        install(cmake, build, os.path.join(work, "prefix"))
        # GIO reads the data folders at its first question, so they are set before it is asked.
        os.environ.update(XDG_DATA_DIRS=os.path.join(work, "prefix", "share"), XDG_DATA_HOME=work)

        def head(sample):
            with open(os.path.join(source, "examples", sample), "rb") as f:
                return f.read(4096)

        rows = [  # name, the file's name, the bytes GIO may sniff (None: the name alone), type
            ("by name", "landscape.etd", None, DOC),
            ("by content", "landscape", head("landscape-v3-byte-system-record.etd"), DOC),
            ("a selection by content", "selection", head("selection-v2.etd"), SEL),
            ("our words in a text", "notes", b"Ember Tide Document notes\n", "text/plain"),
        ]
        failed = 0
        for name, file_name, data, expected in rows:
            got = Gio.content_type_guess(file_name, data)[0]
            print("%s%s: %s -> %s, expected %s" % ("FAIL: " * (got != expected), name, file_name, got, expected))
            failed += got != expected
        return 1 if failed else 0
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())

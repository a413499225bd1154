"""What the desktop tests share: skipping, the GObject libraries, an install into a private prefix,
the cache's entry names, and checks that are all run and then reported together.

A test that cannot run here (a desktop's package missing) exits 77, which ctest reports as
skipped, never as passed. The install is the project's own `cmake --install`, so the tests see
exactly the files and the MIME database that a user's install leaves.
"""
import hashlib
import os
import subprocess
import sys

MIME = "application/x-ember-tide-document"
failures = []


def skip(why):
    print("SKIPPED: " + why)
    sys.exit(77)


def gi_repository(**versions):
    """gi.repository after requiring each namespace's version (GdkPixbuf="2.0"), or a skip."""
    try:
        import gi
        for namespace, version in versions.items():
            gi.require_version(namespace, version)
            __import__("gi.repository." + namespace)
        return sys.modules["gi.repository"]
    except (ImportError, ValueError) as e:
        skip("python3-gi or a GObject library's introspection data is missing: %s" % e)


def install(cmake, build, prefix):
    """Installs the build into prefix the way the README says; a failed install fails the test."""
    out = subprocess.run([cmake, "--install", build, "--prefix", prefix], capture_output=True, text=True)
    print(out.stdout + out.stderr)
    if out.returncode != 0:
        sys.exit("FAIL: cmake --install exited with %d" % out.returncode)


def entry(cache, folder, uri):
    """The freedesktop cache's file for `uri`: the MD5 of the URI, in a size's or failure folder."""
    return os.path.join(cache, "thumbnails", folder, hashlib.md5(uri.encode()).hexdigest() + ".png")


def check(ok, what):
    """Records (and prints) a failed check; the test goes on, and verdict() reports them all."""
    if not ok:
        failures.append(what)
        print("FAIL: " + what)
    return ok


def verdict(passed):
    print("%d checks failed" % len(failures) if failures else "PASS: " + passed)
    return 1 if failures else 0

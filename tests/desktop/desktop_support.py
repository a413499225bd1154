"""What the desktop tests share: skipping, the GObject libraries, an install into a private prefix.

A test that cannot run here (a desktop's package missing) exits 77, which ctest reports as
skipped, never as passed. The install is the project's own `cmake --install`, so the tests see
exactly the files and the MIME database that a user's install leaves.
"""
import subprocess
import sys

SKIP = 77


def skip(why):
    print("SKIPPED: " + why)
    sys.exit(SKIP)


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

#!/usr/bin/python3
"""GNOME's own thumbnail factory reads the cache that `ember-tide cache` filled.

Usage: gnome_cache_test.py TOOL SOURCE_DIR

A tree of documents with spaces, non-ASCII and URI-reserved characters in their names is
cached with XDG_CACHE_HOME in a temporary folder; then GnomeDesktop's factory, which names,
finds and validates entries its own way (GLib's URIs, the Thumb::URI and Thumb::MTime keys),
must find every thumbnail by lookup(uri, mtime) and see every failure by
has_valid_failed_thumbnail(uri, mtime), in each size. Exits 77 (skipped) where python3-gi or
GnomeDesktop is missing; that is never counted as a pass.
"""
import hashlib
import json
import os
import shutil
import stat
import subprocess
import sys
import tempfile

from desktop_support import gi_repository

MIME = "application/x-ember-tide-document"


def main():
    tool, source = sys.argv[1], sys.argv[2]
    repo = gi_repository(GnomeDesktop="3.0", GdkPixbuf="2.0")
    GdkPixbuf, GLib, GnomeDesktop = repo.GdkPixbuf, repo.GLib, repo.GnomeDesktop

    failures = []

    def check(ok, what):
        if not ok:
            failures.append(what)
            print("FAIL: " + what)

    work = tempfile.mkdtemp(prefix="et-cache-")
    try:
        cache = os.path.join(work, "cache")
        env = dict(os.environ, XDG_CACHE_HOME=cache, HOME=os.path.join(work, "home"))
        root = os.path.join(work, "docs with space")
        odd = os.path.join(root, "été 写真", "a!$&'()*+,;=:@[]#%?~ b")
        os.makedirs(odd)
        samples = os.path.join(source, "examples")
        good = {
            os.path.join(root, "landscape.etd"): "landscape-v3-byte-system-record.etd",
            os.path.join(root, "été 写真", "tall ünïcode.etd"): "tall-v2-record.etd",
            os.path.join(odd, "100% #1?.etd"): "transparent-v3-long-system-record.etd",
            os.path.join(odd, "no-extension"): "landscape-v2-inline.etd",
        }
        for path, sample in good.items():
            shutil.copy(os.path.join(samples, sample), path)
        shutil.copy(os.path.join(samples, "selection-v2.etd"), os.path.join(root, "selection.etd"))
        with open(os.path.join(root, "notes.txt"), "w") as f:
            f.write("Ember Tide notes\n")
        # Documents whose previews cannot be decoded: half of a JPEG, and the same cut PNG.
        bad = []
        for sample, name in (("landscape-v2-inline.etd", "half jpeg.etd"), ("transparent-v2-png.etd", "half ü.etd")):
            preview = os.path.join(work, "preview")
            subprocess.run([tool, "extract", os.path.join(samples, sample), preview], check=True)
            with open(preview, "r+b") as f:
                f.truncate(os.path.getsize(preview) // 2)
            bad.append(os.path.join(odd, name))
            subprocess.run([tool, "create", preview, bad[-1]], check=True)

        def run(*args):
            out = subprocess.run([tool, "cache", "--json"] + list(args) + [root], env=env, capture_output=True,
                                 text=True, timeout=120)
            print("$ ember-tide cache --json %s: exit %d %s%s" % (" ".join(args), out.returncode, out.stdout,
                                                                    out.stderr))
            return out.returncode, json.loads(out.stdout)

        def summary(written, up_to_date, failed, not_ours):
            return {"written": written, "up_to_date": up_to_date, "failed": failed, "not_ours": not_ours}

        def counts(result):
            return {k: v for k, v in result.items() if k != "seconds"}

        def mtime(path):
            return int(os.stat(path).st_mtime)

        code, result = run()
        check(code == 1 and counts(result) == summary(4, 0, 2, 2), "first run: %d %s" % (code, result))

        os.environ["XDG_CACHE_HOME"] = cache  # the factory reads the cache from the environment
        sizes = {"normal": (GnomeDesktop.DesktopThumbnailSize.NORMAL, 128),
                 "large": (GnomeDesktop.DesktopThumbnailSize.LARGE, 256),
                 "xx-large": (GnomeDesktop.DesktopThumbnailSize.XXLARGE, 1024)}
        for size, (gnome_size, pixels) in sizes.items():
            if size != "large":
                code, result = run("--size", size)
                check(counts(result) == summary(4, 0, 2, 2), "%s: %s" % (size, result))
            factory = GnomeDesktop.DesktopThumbnailFactory.new(gnome_size)
            for path in good:
                uri = GLib.filename_to_uri(path, None)
                found = factory.lookup(uri, mtime(path))
                check(found == os.path.join(cache, "thumbnails", size, hashlib.md5(uri.encode()).hexdigest() + ".png"),
                      "%s: GNOME finds no thumbnail for %s (%s): %s" % (size, path, uri, found))
                if not found:
                    continue
                pixbuf = GdkPixbuf.Pixbuf.new_from_file(found)
                check(max(pixbuf.get_width(), pixbuf.get_height()) == pixels,
                      "%s: %s is %dx%d" % (size, path, pixbuf.get_width(), pixbuf.get_height()))
                check(pixbuf.get_option("tEXt::Thumb::Mimetype") == MIME and
                      pixbuf.get_option("tEXt::Thumb::Size") == str(os.path.getsize(path)) and
                      pixbuf.get_option("tEXt::Software").startswith("ember-tide "),
                      "%s: optional keys of %s" % (size, path))
                check(not factory.has_valid_failed_thumbnail(uri, mtime(path)), "a failure recorded for " + path)
                check(stat.S_IMODE(os.stat(found).st_mode) == 0o600, "mode of " + found)
            for path in bad:
                uri = GLib.filename_to_uri(path, None)
                check(factory.has_valid_failed_thumbnail(uri, mtime(path)), "GNOME sees no failure for " + path)
                check(factory.lookup(uri, mtime(path)) is None, "a thumbnail for the broken " + path)
                # The standard's own entry, in our program's folder.
                ours = os.path.join(cache, "thumbnails", "fail", "ember-tide-" + tool_version(tool),
                                    hashlib.md5(uri.encode()).hexdigest() + ".png")
                entry = GdkPixbuf.Pixbuf.new_from_file(ours) if os.path.exists(ours) else None
                check(entry is not None and entry.get_option("tEXt::Thumb::URI") == uri and
                      entry.get_option("tEXt::Thumb::MTime") == str(mtime(path)), "our failure entry for " + path)
        for folder, _, _ in os.walk(os.path.join(cache, "thumbnails")):
            check(stat.S_IMODE(os.stat(folder).st_mode) == 0o700, "mode of " + folder)

        # A changed document is stale for GNOME until the next run, which redoes only that one.
        changed = os.path.join(root, "landscape.etd")
        os.utime(changed, (mtime(changed) + 60, mtime(changed) + 60))
        factory = GnomeDesktop.DesktopThumbnailFactory.new(GnomeDesktop.DesktopThumbnailSize.LARGE)
        uri = GLib.filename_to_uri(changed, None)
        check(factory.lookup(uri, mtime(changed)) is None, "GNOME takes a stale thumbnail for current")
        code, result = run()
        check(counts(result) == summary(1, 3, 2, 2), "after one change: %s" % result)
        check(factory.lookup(uri, mtime(changed)) is not None, "GNOME finds no thumbnail after the change")
    finally:
        shutil.rmtree(work, ignore_errors=True)

    if failures:
        print("%d checks failed" % len(failures))
        return 1
    print("PASS: GNOME's factory found every thumbnail and every failure that ember-tide cache wrote")
    return 0


def tool_version(tool):
    return subprocess.run([tool, "--version"], capture_output=True, text=True).stdout.split()[-1]


if __name__ == "__main__":
    sys.exit(main())

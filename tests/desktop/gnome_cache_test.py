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
import json
import os
import shutil
import stat
import subprocess
import sys
import tempfile

from desktop_support import MIME, check, entry, gi_repository, verdict


def main():
    tool, source = sys.argv[1:3]
    repo = gi_repository(GnomeDesktop="3.0", GdkPixbuf="2.0")
    GdkPixbuf, GLib, GnomeDesktop = repo.GdkPixbuf, repo.GLib, repo.GnomeDesktop
    version = subprocess.run([tool, "--version"], capture_output=True, text=True).stdout.split()[-1]
    work = tempfile.TemporaryDirectory(prefix="et-cache-")
    cache, root = work.name + "/cache", work.name + "/docs with space"
    # The factory reads the cache from the environment, as the tool does.
    os.environ.update(XDG_CACHE_HOME=cache, HOME=work.name + "/home")
    odd = os.path.join(root, "été 写真", "a!$&'()*+,;=:@[]#%?~ b")
    os.makedirs(odd)
    samples = os.path.join(source, "examples")
    good = {
        root + "/landscape.etd": "landscape-v3-byte-system-record.etd",
        root + "/été 写真/tall ünïcode.etd": "tall-v2-record.etd",
        odd + "/100% #1?.etd": "transparent-v3-long-system-record.etd",
        odd + "/no-extension": "landscape-v2-inline.etd",
    }
    for path, sample in good.items():
        shutil.copy(os.path.join(samples, sample), path)
    shutil.copy(samples + "/selection-v2.etd", root + "/selection.etd")
    with open(root + "/notes.txt", "w") as f:
        f.write("Ember Tide notes\n")
    # Documents whose previews cannot be decoded: half of a JPEG, and the same cut PNG.
    bad = [odd + "/half jpeg.etd", odd + "/half ü.etd"]
    for sample, path in zip(("landscape-v2-inline.etd", "transparent-v2-png.etd"), bad):
        preview = work.name + "/preview"
        subprocess.run([tool, "extract", os.path.join(samples, sample), preview], check=True)
        os.truncate(preview, os.path.getsize(preview) // 2)
        subprocess.run([tool, "create", preview, path], check=True)

    def run(*args):  # the counts written, up to date, failed and not ours
        out = subprocess.run([tool, "cache", "--json", *args, root], capture_output=True, text=True,
                             timeout=120)
        print("$ ember-tide cache --json %s: exit %d %s%s" % (" ".join(args), out.returncode, out.stdout,
                                                                out.stderr))
        result = json.loads(out.stdout)
        return out.returncode, [result[k] for k in ("written", "up_to_date", "failed", "not_ours")]

    def mtime(path):
        return int(os.stat(path).st_mtime)

    code, counts = run()
    check((code, counts) == (1, [4, 0, 2, 2]), "first run: %d %s" % (code, counts))
    sizes = {"normal": (GnomeDesktop.DesktopThumbnailSize.NORMAL, 128),
             "large": (GnomeDesktop.DesktopThumbnailSize.LARGE, 256),
             "xx-large": (GnomeDesktop.DesktopThumbnailSize.XXLARGE, 1024)}
    for size, (gnome_size, pixels) in sizes.items():
        if size != "large":
            code, counts = run("--size", size)
            check(counts == [4, 0, 2, 2], "%s: %s" % (size, counts))
        factory = GnomeDesktop.DesktopThumbnailFactory.new(gnome_size)
        for path in good:
            uri = GLib.filename_to_uri(path, None)
            found = factory.lookup(uri, mtime(path))
            if not check(found == entry(cache, size, uri), "%s: GNOME finds no thumbnail for %s (%s): %s" % (
                    size, path, uri, found)):
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
            ours = entry(cache, "fail/ember-tide-" + version, uri)
            failed = GdkPixbuf.Pixbuf.new_from_file(ours) if os.path.exists(ours) else None
            check(failed is not None and failed.get_option("tEXt::Thumb::URI") == uri and
                  failed.get_option("tEXt::Thumb::MTime") == str(mtime(path)), "our failure entry for " + path)
    for folder, _, _ in os.walk(os.path.join(cache, "thumbnails")):
        check(stat.S_IMODE(os.stat(folder).st_mode) == 0o700, "mode of " + folder)

    # A changed document is stale for GNOME until the next run, which redoes only that one.
    changed = root + "/landscape.etd"
    os.utime(changed, (mtime(changed) + 60, mtime(changed) + 60))
    factory = GnomeDesktop.DesktopThumbnailFactory.new(GnomeDesktop.DesktopThumbnailSize.LARGE)
    uri = GLib.filename_to_uri(changed, None)
    check(factory.lookup(uri, mtime(changed)) is None, "GNOME takes a stale thumbnail for current")
    code, counts = run()
    check(counts == [1, 3, 2, 2], "after one change: %s" % counts)
    check(factory.lookup(uri, mtime(changed)) is not None, "GNOME finds no thumbnail after the change")
    work.cleanup()
    return verdict("GNOME's factory found every thumbnail and every failure that ember-tide cache wrote")


if __name__ == "__main__":
    sys.exit(main())

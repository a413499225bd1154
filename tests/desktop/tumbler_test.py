#!/usr/bin/python3
"""Xfce's thumbnail service, tumbler, shows our documents through our .thumbnailer file.

Usage: tumbler_test.py CMAKE BUILD_DIR SOURCE_DIR

Debian's real tumblerd runs on a private session bus (dbus-run-session) with the project
installed into a temporary prefix and a private cache. As Thunar does, the test queues a
document's file:// URI with GIO's type for it, in the flavors normal and large: tumbler must
answer Ready and store our picture with Thumb::URI and Thumb::MTime; entries that `ember-tide
cache` wrote must be used as they are, byte for byte.
Skipped (77) without tumbler, dbus or python3-gi.
"""
import glob
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

from desktop_support import check, entry, gi_repository, install, skip, verdict

BUS, OBJECT = "org.freedesktop.thumbnails.Thumbnailer1", "/org/freedesktop/thumbnails/Thumbnailer1"
FLAVORS = {"normal": 128, "large": 256}
TUMBLERD = "/usr/lib/*/tumbler-1/tumblerd"


def session(cmake, build, source, work):
    """Runs on the private bus."""
    repo = gi_repository(GdkPixbuf="2.0", Gio="2.0")
    GdkPixbuf, Gio, GLib = repo.GdkPixbuf, repo.Gio, repo.GLib
    prefix, cache = work + "/prefix", work + "/cache"
    tool, docs = prefix + "/bin/ember-tide", work + "/docs with space"
    install(cmake, build, prefix)
    # tumbler runs the `ember-tide` on its PATH. /usr/share stays: gdk-pixbuf, in tumbler and
    # here, picks its PNG loader by MIME type.
    os.environ.update(XDG_DATA_DIRS=prefix + "/share:/usr/share", XDG_DATA_HOME=work + "/data",
                      XDG_CACHE_HOME=cache, XDG_CONFIG_HOME=work + "/config",
                      PATH=prefix + "/bin:" + os.environ["PATH"])
    os.makedirs(docs)
    fresh, cached = docs + "/landscape.etd", docs + "/tall ü.etd"
    shutil.copy(source + "/examples/landscape-v3-byte-system-record.etd", fresh)
    shutil.copy(source + "/examples/tall-v2-record.etd", cached)
    # tumbler takes an entry as current only when Thumb::MTime is the file's time to the
    # microsecond, the standard's entries give whole seconds: both agree on a whole-second time.
    os.utime(cached, ns=(1700000000 * 10**9,) * 2)
    for flavor in FLAVORS:
        subprocess.run([tool, "cache", "--size", flavor, cached], check=True)

    def read(path):  # None when missing: tumbler deletes the entries of files it cannot thumbnail
        return pathlib.Path(path).read_bytes() if os.path.exists(path) else None

    def rgba(pixbuf):  # tumbler stores RGBA, our opaque pictures are RGB
        return pixbuf.get_width(), pixbuf.get_height(), pixbuf.add_alpha(0, 0, 0, 0).read_pixel_bytes().get_data()

    cached_uri = GLib.filename_to_uri(cached, None)
    before = {flavor: read(entry(cache, flavor, cached_uri)) for flavor in FLAVORS}
    tumblerd = subprocess.Popen(glob.glob(TUMBLERD)[:1])
    try:
        bus, signals, deadline = Gio.bus_get_sync(Gio.BusType.SESSION), [], time.monotonic() + 60
        bus.signal_subscribe(BUS, BUS, None, OBJECT, None, 0, lambda *a: signals.append((a[4], a[5].unpack())))

        def call(name, path, method, signature, args):
            return bus.call_sync(name, path, name, method, GLib.Variant(signature, args), None, 0, -1, None)[0]

        def wait(done):
            while not done() and time.monotonic() < deadline:
                GLib.MainContext.default().iteration(False) or time.sleep(0.01)
            return done()

        if not check(wait(lambda: call("org.freedesktop.DBus", "/org/freedesktop/DBus", "NameHasOwner", "(s)",
                                       (BUS,))), "tumblerd never took its bus name"):
            return
        for doc in (fresh, cached):
            uri, mtime = GLib.filename_to_uri(doc, None), str(os.stat(doc).st_mtime_ns // 10**9)
            mime = Gio.File.new_for_path(doc).query_info("standard::content-type", 0, None).get_content_type()
            for flavor, pixels in FLAVORS.items():
                handle = call(BUS, OBJECT, "Queue", "(asasssu)", ([uri], [mime], flavor, "foreground", 0))
                wait(lambda: ("Finished", (handle,)) in signals)
                answers = [s for s in signals if s[0] in ("Ready", "Error") and s[1][0] == handle]
                subprocess.run([tool, "thumbnail", "-s", str(pixels), doc, work + "/ours.png"], check=True)
                ours = GdkPixbuf.Pixbuf.new_from_file(work + "/ours.png")
                ready = answers == [("Ready", (handle, [uri]))]
                got = ready and GdkPixbuf.Pixbuf.new_from_file(entry(cache, flavor, uri))
                print("%s %s (%s): %s, stored %s" % (
                    uri, flavor, mime, answers, got and "%dx%d" % (got.get_width(), got.get_height())))
                where = "%s %s: " % (doc, flavor)
                check(got, where + "tumbler answered %s" % answers)
                # Made again (tumbler's own copy) or deleted, it would differ.
                check(doc == fresh or read(entry(cache, flavor, uri)) == before[flavor], where + "entry changed")
                check(not got or rgba(got) == rgba(ours), where + "another picture than ours at %d" % pixels)
                check(not got or (got.get_option("tEXt::Thumb::URI"),
                                  got.get_option("tEXt::Thumb::MTime").split(".")[0]) == (uri, mtime),
                      where + "Thumb::URI or Thumb::MTime")
    finally:
        tumblerd.terminate()
        tumblerd.wait()


def main():
    if os.environ.get("ET_TUMBLER_SESSION"):  # the second run, on the private bus
        with tempfile.TemporaryDirectory(prefix="et-tumbler-") as work:
            session(*sys.argv[1:4], work)
        return verdict("tumbler showed our pictures and used our cache")
    if not shutil.which("dbus-run-session") or not glob.glob(TUMBLERD):
        skip("tumbler's tumblerd or dbus-run-session (dbus) is not installed")
    gi_repository(GdkPixbuf="2.0", Gio="2.0")
    return subprocess.run(["dbus-run-session", "--", sys.executable, "-u", __file__] + sys.argv[1:4],
                          env=dict(os.environ, ET_TUMBLER_SESSION="1")).returncode


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""GNOME's own thumbnail factory thumbnails our documents through our .thumbnailer file.

Usage: gnome_factory_test.py TOOL SOURCE_DIR
       gnome_factory_test.py --installed SOURCE_DIR

The factory runs thumbnailers inside a bubblewrap sandbox that shows them only /usr and the
system folders, with the input copied under /tmp: so the tool is installed for the test in a
private folder under /usr/local (removed afterwards), and the .thumbnailer and MIME files go
into a temporary XDG data folder. Exits 77 (skipped) when the factory or its sandbox cannot
run here; that is never counted as a pass. With --installed, the factory finds the tool, the
.thumbnailer entry and the MIME type where a package put them: /usr/bin and /usr/share.
"""
import os
import shutil
import struct
import subprocess
import sys
import tempfile

from desktop_support import gi_repository, skip


def child(doc, selection, size):
    """Runs inside the prepared environment: asks the factory, prints what it found."""
    import gi
    gi.require_version("GnomeDesktop", "3.0")
    from gi.repository import GLib, GnomeDesktop
    factory = GnomeDesktop.DesktopThumbnailFactory.new(
        GnomeDesktop.DesktopThumbnailSize.LARGE if size == 256 else GnomeDesktop.DesktopThumbnailSize.NORMAL)
    mime = "application/x-ember-tide-document"
    uri = GLib.filename_to_uri(doc, None)
    mtime = int(os.stat(doc).st_mtime)
    if not factory.can_thumbnail(uri, mime, mtime):
        print("RESULT cannot-thumbnail")
        return
    try:
        pixbuf = factory.generate_thumbnail(uri, mime, None)
    except GLib.Error as e:
        print("RESULT generate-failed %s" % e.message)
        return
    factory.save_thumbnail(pixbuf, uri, mtime, None)
    path = factory.lookup(uri, mtime)
    print("RESULT ok %d %d %s" % (pixbuf.get_width(), pixbuf.get_height(), path))
    # A document without a preview: the thumbnailer fails, the factory records the failure.
    suri = GLib.filename_to_uri(selection, None)
    smtime = int(os.stat(selection).st_mtime)
    try:
        factory.generate_thumbnail(suri, mime, None)
        print("FAILURE-CASE produced-a-thumbnail")
    except GLib.Error:
        factory.create_failed_thumbnail(suri, smtime, None)
        print("FAILURE-CASE recorded %s" % factory.has_valid_failed_thumbnail(suri, smtime))


def install_privately(tool, source, private, data):
    """The tool in a private folder under /usr/local, its .thumbnailer and MIME files in data."""
    installed = os.path.join(private, "ember-tide")
    shutil.copy2(tool, installed)
    os.makedirs(os.path.join(data, "mime", "packages"))
    os.makedirs(os.path.join(data, "thumbnailers"))
    shutil.copy(os.path.join(source, "packaging/linux/ember-tide-mime.xml"),
                os.path.join(data, "mime", "packages", "ember-tide.xml"))
    subprocess.run(["update-mime-database", os.path.join(data, "mime")], check=True)
    with open(os.path.join(source, "packaging/linux/ember-tide.thumbnailer")) as f:
        entry = f.read().replace("Exec=ember-tide", "Exec=" + installed)
        entry = entry.replace("TryExec=ember-tide", "TryExec=" + installed)
    with open(os.path.join(data, "thumbnailers", "ember-tide.thumbnailer"), "w") as f:
        f.write(entry)


def main():
    if len(sys.argv) == 5 and sys.argv[1] == "--child":
        child(sys.argv[2], sys.argv[3], int(sys.argv[4]))
        return
    tool, source = sys.argv[1], sys.argv[2]
    system = tool == "--installed"
    gi_repository(GnomeDesktop="3.0")
    if not shutil.which("bwrap"):
        skip("bubblewrap is not installed")
    if subprocess.run(["bwrap", "--ro-bind", "/", "/", "true"], capture_output=True).returncode != 0:
        skip("bubblewrap cannot create its sandbox on this machine")
    if not system and not os.access("/usr/local", os.W_OK):
        skip("cannot install the tool under /usr/local (the sandbox shows only /usr)")

    work = tempfile.mkdtemp(prefix="et-desktop-")
    private = None if system else tempfile.mkdtemp(prefix="et-desktop-test-", dir="/usr/local/lib")
    try:
        data = os.path.join(work, "data")
        if system:
            data_dirs = "/usr/share"
        else:
            data_dirs = data + ":/usr/share"
            install_privately(tool, source, private, data)
        docs = os.path.join(work, "docs with space")
        os.makedirs(docs)
        doc = os.path.join(docs, "landscape.etd")
        selection = os.path.join(docs, "selection.etd")
        shutil.copy(os.path.join(source, "examples/landscape-v3-byte-system-record.etd"), doc)
        shutil.copy(os.path.join(source, "examples/selection-v2.etd"), selection)
        env = dict(os.environ, XDG_DATA_DIRS=data_dirs, XDG_CACHE_HOME=os.path.join(work, "cache"),
                   HOME=os.path.join(work, "home"))
        os.makedirs(env["HOME"])
        out = subprocess.run([sys.executable, __file__, "--child", doc, selection, "256"], env=env,
                             capture_output=True, text=True, timeout=120)
        print(out.stdout, out.stderr)
        lines = {l.split(" ", 1)[0]: l.split(" ")[1:] for l in out.stdout.splitlines() if " " in l}
        result = lines.get("RESULT")
        if not result:
            print("FAIL: the factory gave no answer")
            return 1
        if result[0] != "ok":
            print("FAIL: " + " ".join(result))
            return 1
        width, height, path = int(result[1]), int(result[2]), result[3]
        # The sample is 320x240: fitted into 256 it is 256x192, and the factory keeps it as it is.
        if (width, height) != (256, 192):
            print("FAIL: thumbnail %dx%d, expected 256x192" % (width, height))
            return 1
        with open(path, "rb") as f:
            head = f.read(24)
        if head[:8] != b"\x89PNG\r\n\x1a\n" or struct.unpack(">II", head[16:24]) != (256, 192):
            print("FAIL: the saved thumbnail %s is not a 256x192 PNG" % path)
            return 1
        if lines.get("FAILURE-CASE") != ["recorded", "True"]:
            print("FAIL: a document without preview was not recorded as failed: %s" % lines.get("FAILURE-CASE"))
            return 1
        print("PASS: GNOME's factory made %dx%d through the sandbox and recorded the failure" % (width, height))
        return 0
    finally:
        if private:
            shutil.rmtree(private, ignore_errors=True)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())

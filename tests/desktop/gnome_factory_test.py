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
import subprocess
import sys
import tempfile

from desktop_support import MIME, check, gi_repository, skip, verdict


def install_privately(tool, source, private, data):
    """The tool in a private folder under /usr/local, its .thumbnailer and MIME files in data."""
    installed = os.path.join(private, "ember-tide")
    shutil.copy2(tool, installed)
    os.makedirs(data + "/mime/packages")
    os.makedirs(data + "/thumbnailers")
    shutil.copy(source + "/packaging/linux/ember-tide-mime.xml", data + "/mime/packages/ember-tide.xml")
    subprocess.run(["update-mime-database", data + "/mime"], check=True)
    with open(source + "/packaging/linux/ember-tide.thumbnailer") as f:
        entry = f.read().replace("Exec=ember-tide", "Exec=" + installed)
    with open(data + "/thumbnailers/ember-tide.thumbnailer", "w") as f:
        f.write(entry)


def ask_factory(repo, doc, selection):
    """Thumbnails doc and fails on selection (no preview), as the file manager's factory does."""
    GdkPixbuf, GLib, GnomeDesktop = repo.GdkPixbuf, repo.GLib, repo.GnomeDesktop
    factory = GnomeDesktop.DesktopThumbnailFactory.new(GnomeDesktop.DesktopThumbnailSize.LARGE)
    uri, mtime = GLib.filename_to_uri(doc, None), int(os.stat(doc).st_mtime)
    if not check(factory.can_thumbnail(uri, MIME, mtime), "the factory cannot thumbnail " + MIME):
        return
    pixbuf = factory.generate_thumbnail(uri, MIME, None)
    factory.save_thumbnail(pixbuf, uri, mtime, None)
    saved = GdkPixbuf.Pixbuf.new_from_file(factory.lookup(uri, mtime))
    # The sample is 320x240: fitted into 256 it is 256x192, and the factory keeps it as it is.
    sizes = [(p.get_width(), p.get_height()) for p in (pixbuf, saved)]
    check(sizes == [(256, 192)] * 2, "made and saved %s, expected 256x192" % sizes)
    uri, mtime = GLib.filename_to_uri(selection, None), int(os.stat(selection).st_mtime)
    try:
        factory.generate_thumbnail(uri, MIME, None)
        check(False, "a thumbnail of a document without preview")
    except GLib.Error:
        factory.create_failed_thumbnail(uri, mtime, None)
        check(factory.has_valid_failed_thumbnail(uri, mtime), "the failure was not recorded")


def main():
    tool, source = sys.argv[1:3]
    system = tool == "--installed"
    repo = gi_repository(GnomeDesktop="3.0", GdkPixbuf="2.0")
    if not shutil.which("bwrap"):
        skip("bubblewrap is not installed")
    if subprocess.run(["bwrap", "--ro-bind", "/", "/", "true"], capture_output=True).returncode != 0:
        skip("bubblewrap cannot create its sandbox on this machine")
    if not system and not os.access("/usr/local", os.W_OK):
        skip("cannot install the tool under /usr/local (the sandbox shows only /usr)")

    with tempfile.TemporaryDirectory(prefix="et-desktop-") as work:
        private = None if system else tempfile.mkdtemp(prefix="et-desktop-test-", dir="/usr/local/lib")
        try:
            if not system:
                install_privately(tool, source, private, work + "/data")
            # GLib reads these at its first question, so they are set before the factory is made.
            os.environ.update(XDG_DATA_DIRS="/usr/share" if system else work + "/data:/usr/share",
                              XDG_CACHE_HOME=work + "/cache", HOME=work + "/home")
            docs = work + "/docs with space"
            os.makedirs(docs)
            shutil.copy(source + "/examples/landscape-v3-byte-system-record.etd", docs + "/landscape.etd")
            shutil.copy(source + "/examples/selection-v2.etd", docs + "/selection.etd")
            ask_factory(repo, docs + "/landscape.etd", docs + "/selection.etd")
        finally:
            if private:
                shutil.rmtree(private, ignore_errors=True)
    return verdict("GNOME's factory made 256x192 through the sandbox and recorded the failure")


if __name__ == "__main__":
    sys.exit(main())

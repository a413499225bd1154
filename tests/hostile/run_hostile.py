#!/usr/bin/python3
"""Runs `ember-tide thumbnail` and `info --json` on hostile documents, each under 256 MB of
address space and 2 s (prlimit's, on that run alone); fails on a crash, timeout, limit hit,
sanitizer report or exit status other than 0, 1 or 2. Usage: run_hostile.py TOOL SOURCE_DIR
[--sanitized] (no memory limit, as shadow memory needs more, and five times the time). The
documents: crafted ones (one table), every truncation of documents that `ember-tide create` wrote,
and examples/ with bits flipped. The controls, well-formed documents of each layout the crafted
ones vary, must give a thumbnail: a case that no longer reaches its reader would else pass
untested. Every other document's OUT exists before the run, so that both ways of making the
picture (a confined child for a new OUT, the confined tool itself for an existing one) see them."""
import collections
import concurrent.futures
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from etd_bytes import (BYTE, LONG, document, dictionary_object, information,
                       inline_picture, nested_dictionaries, picture_record, png, preview,
                       progressive_jpeg, u16, u32)

# Messages of the tool and of the sanitizers that mean a limit or a fault, whatever the status.
BAD_MESSAGES = ("processor time", "bad_alloc", "out of memory", "AddressSanitizer",
                "LeakSanitizer", "runtime error:", "UndefinedBehaviorSanitizer")


def crafted(image):
    """(name, bytes) of the controls (named control-...) and their hostile variants."""
    w, h, forms = 4, 3, (LONG, BYTE)
    good = preview(LONG, [LONG.item(0, information(w, h)), inline_picture(LONG, image)])

    def in_preview(form, item, **table):  # the item alone in the preview chunk of a document
        return document(form, [preview(form, [item])], **table)

    def in_record(form, record, listed=True):  # item 4 of the preview, listed in the table
        return in_preview(form, form.item(4, record), table=[record] if listed else None)

    def named(form, n):  # a record whose class name's length says n
        return b"\0" + form.string(b"GSMemPicData", n)

    def array_block(class_name, count):  # an array object: its block's version, then the count
        return BYTE.record(class_name, BYTE.chunk([BYTE.item(
            1, BYTE.version(0x0100) + BYTE.count(count) + b"xyz")]))

    def merging_block(version, with_table):  # an array block of 2.0 merges objects of its own
        block = LONG.record(b"GSBufferObject", LONG.chunk([LONG.item(
            1, LONG.version(0x0200) + u16(256) + u32(0) + u32(4) + b"abcd")]))
        return in_preview(LONG, LONG.item(4, block), version=version,
                          table=[block] if with_table else None)

    def self_references(f):  # object tables that lead back to an object still being read
        own, itself = dictionary_object(f, [], [f.reference(0)]), f.item(4, f.reference(0))
        first, second = (dictionary_object(f, [], [f.reference(1)]),
                         dictionary_object(f, [f.reference(0)], []))
        by_reference = preview(f, [itself])
        return [("self-reference-" + f.label, document(f, [f.item(12, own), by_reference],
                                                       table=[own])),
                ("self-reference-in-place-" + f.label, in_record(f, own)),
                ("mutual-references-" + f.label, document(
                    f, [f.item(12, first + second), by_reference], table=[first, second])),
                ("reference-to-itself-" + f.label, document(f, [by_reference],
                                                            table=[itself[-5:]]))]

    def nesting(form, depth):
        nested, offsets = nested_dictionaries(form, depth)
        return in_preview(form, form.item(4, nested),
                          table=[(nested, at) for at in offsets] if form.byte_form else None)

    def inventory(needle, offsets):  # the object table's entries point into `needle`
        items = [LONG.item(12, needle), good]
        at = document(LONG, items, version=0x0302, table=[needle]).find(needle)
        return document(LONG, items, version=0x0302, table=[at + o for o in offsets])

    # `info` reads one long class name over and over: one record named by 50,000 entries, and
    # entries at every header of a chain of names nested in each other.
    name, headers = b"N" * (1 << 20), 40000
    chain = b"".join(b"\0" + u16(-101) + u32(len(name) + 1 + 7 * (headers - 1 - k))
                     for k in range(headers)) + name + b"\0"
    counts32, counts64 = ((1 << 31) - 1, 1 << 31, 0xFFFFFFFF), (1 << 31, 1 << 62, (1 << 63) - 1)
    dictionary_count = lambda n: LONG.record(b"GSObjectDictionaryObject", LONG.chunk([  # noqa
        LONG.item(1, LONG.chunk([LONG.item(1, u32(n) + b"\0" * 8)]))]))
    return [
        ("control-v2-inline", document(LONG, [good])),
        ("control-v2-record", in_record(LONG, picture_record(LONG, image, w, h), False)),
        *[("control-v3-%s-record" % f.label, in_record(f, picture_record(f, image, w, h)))
          for f in forms],
        *[("control-v3-%s-inline" % f.label, in_preview(f, inline_picture(f, image), table=[]))
          for f in forms],
        # Negative lengths: a skip that does not move forward, or moves back onto its header.
        *[row for n in (-1, -8, -9, -(1 << 31)) for row in (
            ("negative-top-item%d" % n, document(LONG, [LONG.item(12, b"abcd", length=n), good])),
            ("negative-preview-item%d" % n, document(LONG, [preview(LONG, [
                LONG.item(5, b"abcd", length=n), inline_picture(LONG, image)])])))],
        *[("negative-byte-item%d" % n, document(BYTE, [BYTE.item(12, b"abcd", length=n), preview(
            BYTE, [inline_picture(BYTE, image)])], table=[])) for n in (-1, -9, -(1 << 62))],
        ("negative-picture-count", in_preview(LONG, inline_picture(LONG, image, count=-1))),
        ("negative-string-length", in_record(LONG, named(LONG, -5), False)),
        # Counts of 2^31 - 1 (the largest 4-byte count), 2^31, 2^32 - 1, 2^62 and 2^63 - 1.
        *[row for n in counts32 for row in (
            ("count-inline-%x" % n, in_preview(LONG, inline_picture(LONG, image, count=n))),
            ("count-record-%x" % n, in_record(LONG, picture_record(LONG, image, w, h, n), False)),
            ("count-string-%x" % n, in_record(LONG, named(LONG, n), False)),
            ("count-dictionary-%x" % n, in_record(LONG, dictionary_count(n), False)),
            ("count-table-%x" % n, document(LONG, [good], version=0x0300, table=[0],
                                            table_count=n)))],
        *[row for n in counts64 for row in (
            ("count-byte-inline-%x" % n, in_preview(BYTE, inline_picture(BYTE, image, count=n),
                                                    table=[])),
            ("count-byte-record-%x" % n, in_record(BYTE, picture_record(BYTE, image, w, h, n))),
            ("count-byte-string-%x" % n, in_record(BYTE, named(BYTE, n))),
            *[("count-byte-%s-%x" % (c.decode(), n), in_record(BYTE, array_block(c, n)))
              for c in (b"GSBufferObject", b"GSLongArrayObject", b"GSFloatArrayObject")])],
        *[("size-%x-%x" % (x & 0xFFFFFFFF, y & 0xFFFFFFFF), document(LONG, [preview(LONG, [
            LONG.item(0, information(x, y)), inline_picture(LONG, image)])]))
          for x, y in ((0x7FFFFFFF, 0x7FFFFFFF), (-1, -1), (0x7FFFFFFF, 1), (1, -0x80000000))],
        # Object merging started by an array block inside a document that merges already, and in
        # one that does not (then with a table header of its own).
        ("array-merging-v302", merging_block(0x0302, True)),
        ("array-merging-v200", merging_block(0x0200, False)),
        *[row for f in forms for row in self_references(f)],
        # A table offset that points back into the header.
        *[("table-offset-backwards-%s" % f.label, in_preview(f, inline_picture(f, image),
                                                             table=[0], table_offset=-12))
          for f in forms],
        # Nesting deeper than the readers' limit, and far deeper than a stack could take.
        *[("nesting-%s%d" % ("byte-" if f.byte_form else "", depth), nesting(f, depth))
          for depth in (65, 100, 20000) for f in forms],
        ("inventory-one-record-50000-times", inventory(LONG.record(name, b""), [0] * 50000)),
        ("inventory-nested-names", inventory(chain, range(0, 7 * headers, 7))),
        # 50,000 scans that each code nothing, yet cost a pass over the picture.
        ("jpeg-50000-empty-scans", document(LONG, [preview(LONG, [
            LONG.item(0, information(1448, 1448)),
            inline_picture(LONG, progressive_jpeg(1448, 50000), kind=2)])])),
    ]


def truncations(tool, work, image):
    """Every prefix of small documents written by the tool itself, in three layouts."""
    cases, picture, out = [], Path(work, "picture.png"), Path(work, "made.etd")
    picture.write_bytes(image)
    for options in (["--version", "3.2", "--form", "byte", "--store", "record"],
                    ["--version", "3.2", "--form", "long", "--store", "system-record"],
                    ["--version", "2.0", "--store", "inline"]):
        subprocess.run([tool, "create"] + options + [picture, out], check=True)
        whole, label = out.read_bytes(), "-".join(options[1::2])
        cases += [("created-" + label, whole)] + [
            ("cut-%s-at-%d" % (label, n), whole[:n]) for n in range(len(whole))]
    return cases


def bit_flips(source, variants=30):
    """examples/ with 1 to 8 bits flipped, half in the first 512 bytes (headers and records)."""
    rng, cases = random.Random(20240501), []  # fixed: a failure can be replayed
    for sample in sorted(Path(source, "examples").iterdir()):
        for v in range(variants):
            data = bytearray(sample.read_bytes())
            for _ in range(rng.randint(1, 8)):
                span = min(len(data), 512) if rng.random() < 0.5 else len(data)
                data[rng.randrange(span)] ^= 1 << rng.randrange(8)
            cases.append(("flip-%s-%d" % (sample.name, v), bytes(data)))
    return cases


Run = collections.namedtuple("Run", "name command status why seconds")


def run(tool, limits, timeout, control, name, command, path, existing):
    """One run of the tool under prlimit's `limits`, killed past `timeout`."""
    argv = ([tool, "thumbnail", path, path + ".png"] if command == "thumbnail"
            else [tool, "info", "--json", path])  # which takes stock of the object table
    if existing:
        Path(path + ".png").touch()
    start = time.monotonic()
    try:
        done = subprocess.run(["prlimit"] + limits + argv, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                              errors="replace", timeout=timeout)
    except subprocess.TimeoutExpired:
        return Run(name, command, "timeout", "timeout", time.monotonic() - start)
    code, stderr = done.returncode, done.stderr.strip()
    outcome = code if code >= 0 else "signal " + signal.Signals(-code).name
    bad = [line for line in stderr.splitlines() if any(m in line for m in BAD_MESSAGES)]
    why = (outcome if code < 0 else
           "exit status %d" % code if code not in (0, 1, 2) else
           "limit or sanitizer: " + bad[-1][:200] if bad else
           "a well-formed document gave status %d: %s" % (code, stderr) if control and code
           else None)
    return Run(name, command, outcome, why, time.monotonic() - start)


def main():
    tool, source, sanitized = os.path.abspath(sys.argv[1]), sys.argv[2], "--sanitized" in sys.argv
    timeout = 10.0 if sanitized else 2.0
    limits = ["--core=0"] + ([] if sanitized else ["--as=%d" % (256 << 20)])
    for variable in ("ASAN_OPTIONS", "UBSAN_OPTIONS"):  # a report ends the run with a signal
        os.environ[variable] = os.environ.get(variable, "") + ":abort_on_error=1"
    started = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="et-hostile-") as work:
        cases = crafted(png(4, 3)) + truncations(tool, work, png(4, 3)) + bit_flips(source)
        controls = {name for name, _ in cases if name.startswith(("control-", "created-"))}
        for name, data in cases:
            Path(work, name + ".etd").write_bytes(data)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            results = list(pool.map(lambda job: run(tool, limits, timeout, *job), [
                (name in controls, name, command, str(Path(work, name + ".etd")), i % 2 == 0)
                for i, (name, _) in enumerate(cases) for command in ("thumbnail", "info")]))

        failures = [r for r in results if r.why]
        slowest = max(results, key=lambda r: r.seconds)
        print("%d documents (%d controls), %d runs in %.1f s, at most %.1f s%s each; slowest: "
              "%.2f s (%s %s)" % (len(cases), len(controls), len(results),
                                  time.monotonic() - started, timeout,
                                  "" if sanitized else " and 256 MB", slowest.seconds,
                                  slowest.command, slowest.name))
        print("statuses: " + ", ".join("%s %s: %d" % (c, s, n) for (c, s), n in sorted(
            collections.Counter((r.command, r.status) for r in results).items(), key=str))
              + "; %d failed runs" % len(failures))
        kept = Path(tempfile.gettempdir(), "et-hostile-failures")
        for failure in failures[:50]:  # the documents kept for a replay
            print("FAIL: %s %s: %s (in %s)" % (failure.command, failure.name, failure.why, kept))
            kept.mkdir(exist_ok=True)
            shutil.copy(Path(work, failure.name + ".etd"), kept)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())

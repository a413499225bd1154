#!/usr/bin/python3
"""Runs `ember-tide thumbnail` and `ember-tide info --json` on hostile documents, each under a
memory and a time limit, and fails on any crash, timeout or limit hit.

Usage: run_hostile.py TOOL SOURCE_DIR [--sanitized] [--memory-mb 256] [--seconds 2] [--jobs 2]

The documents are made here: crafted ones (negative lengths, counts of 2^31 and 2^62,
self-referencing object tables, nesting deeper than the readers' limit), every truncation of
small documents that `ember-tide create` wrote, and the samples in examples/ with bits flipped at
random (a fixed seed, so that a failure can be replayed). Crafted documents are variations of
well-formed controls, which must give a thumbnail in the same run: a crafted case that no longer
reaches the reader it aims at would otherwise pass without testing anything.

A run passes with exit status 0, 1 or 2 and nothing on stderr that tells of a limit or a
sanitizer. It fails when the tool dies of a signal, takes longer than the time limit (it is then
killed), exits with another status, or reports that it ran out of memory or processor time.
The memory limit is RLIMIT_AS, set on this script's own process once the documents are made and
inherited by every run (setting it in a preexec_fn would fork the interpreter for each run,
which is four times slower); --sanitized (a sanitizer build, whose shadow memory needs far more
address space) leaves it off and multiplies the time limit by 5. Failing documents are kept in a
folder that the report names.
"""
import argparse
import collections
import os
import random
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from etd_bytes import (Form, document, dictionary_object, information, inline_picture,  # noqa: E402
                       nested_dictionaries, picture_record, png, preview, progressive_jpeg, u16,
                       u32)

LONG, BYTE = Form(False), Form(True)
SEED = 20240501
# Messages of the tool and of the sanitizers that mean a limit or a fault, whatever the status.
BAD_MESSAGES = ("processor time", "bad_alloc", "out of memory", "AddressSanitizer",
                "LeakSanitizer", "runtime error:", "UndefinedBehaviorSanitizer")


def crafted(image):
    """(name, bytes, must_thumbnail) for the well-formed controls and their hostile variants."""
    w, h = 4, 3
    cases = []

    def add(name, data, control=False):
        cases.append((name, data, control))

    # Controls: one of each layout the hostile cases start from.
    add("control-v2-inline", document(LONG, [preview(LONG, [LONG.item(0, information(w, h)),
                                                            inline_picture(LONG, image)])]), True)
    add("control-v2-record", document(LONG, [preview(LONG, [LONG.item(4, picture_record(
        LONG, image, w, h))])]), True)
    for form, label in ((LONG, "long"), (BYTE, "byte")):
        record = picture_record(form, image, w, h)
        add("control-v3-%s-record" % label,
            document(form, [preview(form, [form.item(4, record)])], table=[record]), True)
        add("control-v3-%s-inline" % label,
            document(form, [preview(form, [inline_picture(form, image)])], table=[]), True)

    good_preview = preview(LONG, [LONG.item(0, information(w, h)), inline_picture(LONG, image)])

    # Negative lengths: a skip that does not move forward, or moves back onto the same header.
    for length in (-1, -8, -9, -(1 << 31)):
        add("negative-top-item%d" % length,
            document(LONG, [LONG.item(12, b"abcd", length=length), good_preview]))
        add("negative-preview-item%d" % length, document(LONG, [preview(LONG, [
            LONG.item(5, b"abcd", length=length), inline_picture(LONG, image)])]))
    for length in (-1, -9, -(1 << 62)):
        add("negative-byte-item%d" % length, document(BYTE, [
            BYTE.item(12, b"abcd", length=length),
            preview(BYTE, [inline_picture(BYTE, image)])], table=[]))
    add("negative-picture-count", document(LONG, [preview(LONG, [
        inline_picture(LONG, image, count=-1)])]))
    add("negative-string-length", document(LONG, [preview(LONG, [LONG.item(
        4, b"\0" + LONG.string(b"GSMemPicData", count=-5))])]))

    # Counts of 2^31 (and 2^31 - 1, the largest a 4-byte count holds) and 2^62, with a few
    # bytes behind them.
    for count in ((1 << 31) - 1, 1 << 31, 0xFFFFFFFF):
        add("count-inline-%x" % count, document(LONG, [preview(LONG, [
            inline_picture(LONG, image, count=count)])]))
        add("count-record-%x" % count, document(LONG, [preview(LONG, [LONG.item(
            4, picture_record(LONG, image, w, h, count=count))])]))
        add("count-string-%x" % count, document(LONG, [preview(LONG, [LONG.item(
            4, b"\0" + LONG.string(b"GSMemPicData", count=count))])]))
        add("count-dictionary-%x" % count, document(LONG, [preview(LONG, [LONG.item(
            4, LONG.record(b"GSObjectDictionaryObject", LONG.chunk([LONG.item(1, LONG.chunk([
                LONG.item(1, u32(count) + b"\0" * 8)]))])))])]))
        add("count-table-%x" % count, document(LONG, [good_preview], version=0x0300, table=[0],
                                               table_count=count))
    for count in (1 << 31, 1 << 62, (1 << 63) - 1):
        add("count-byte-inline-%x" % count, document(BYTE, [preview(BYTE, [
            inline_picture(BYTE, image, count=count)])], table=[]))
        record = picture_record(BYTE, image, w, h, count=count)
        add("count-byte-record-%x" % count,
            document(BYTE, [preview(BYTE, [BYTE.item(4, record)])], table=[record]))
        record = b"\0" + BYTE.string(b"GSMemPicData", count=count)
        add("count-byte-string-%x" % count,
            document(BYTE, [preview(BYTE, [BYTE.item(4, record)])], table=[record]))
        for class_name in (b"GSBufferObject", b"GSLongArrayObject", b"GSFloatArrayObject"):
            # An array block: its own version, then the element count.
            record = BYTE.record(class_name, BYTE.chunk([BYTE.item(1, BYTE.version(0x0100) +
                                                                   BYTE.count(count) + b"xyz")]))
            add("count-byte-%s-%x" % (class_name.decode(), count),
                document(BYTE, [preview(BYTE, [BYTE.item(4, record)])], table=[record]))
    for width, height in ((0x7FFFFFFF, 0x7FFFFFFF), (-1, -1), (0x7FFFFFFF, 1), (1, -0x80000000)):
        add("size-%x-%x" % (width & 0xFFFFFFFF, height & 0xFFFFFFFF), document(LONG, [preview(
            LONG, [LONG.item(0, information(width, height)), inline_picture(LONG, image)])]))
    # An array block of version 2.0 starts object merging of its own: inside a document that
    # merges already, and in one that does not (then with a table header of its own).
    for version, with_table in ((0x0302, True), (0x0200, False)):
        block = LONG.record(b"GSBufferObject", LONG.chunk([LONG.item(
            1, LONG.version(0x0200) + u16(256) + u32(0) + u32(4) + b"abcd")]))
        add("array-merging-v%x" % version, document(LONG, [preview(LONG, [LONG.item(4, block)])],
                                                    version=version,
                                                    table=[block] if with_table else None))

    # Object tables that lead back to an object still being read.
    for form, label in ((LONG, "long"), (BYTE, "byte")):
        own = dictionary_object(form, [], [form.reference(0)])
        add("self-reference-%s" % label, document(form, [
            form.item(12, own), preview(form, [form.item(4, form.reference(0))])], table=[own]))
        add("self-reference-in-place-%s" % label, document(form, [
            preview(form, [form.item(4, own)])], table=[own]))
        first = dictionary_object(form, [], [form.reference(1)])
        second = dictionary_object(form, [form.reference(0)], [])
        add("mutual-references-%s" % label, document(form, [
            form.item(12, first + second), preview(form, [form.item(4, form.reference(0))])],
            table=[first, second]))
        pointing_at_itself = form.item(4, form.reference(0))
        add("reference-to-itself-%s" % label, document(form, [
            preview(form, [pointing_at_itself])], table=[pointing_at_itself[-5:]]))
        # A table offset that points back into the header.
        add("table-offset-backwards-%s" % label, document(
            form, [preview(form, [inline_picture(form, image)])], table=[0], table_offset=-12))
    # Nesting deeper than the readers' limit, and far deeper than a stack could take.
    for depth in (65, 100, 20000):
        nested, _ = nested_dictionaries(LONG, depth)
        add("nesting-%d" % depth, document(LONG, [preview(LONG, [LONG.item(4, nested)])]))
        nested, offsets = nested_dictionaries(BYTE, depth)
        add("nesting-byte-%d" % depth, document(BYTE, [preview(BYTE, [BYTE.item(4, nested)])],
                                                table=[(nested, at) for at in offsets]))

    # Object tables that make `info` read one long class name over and over: 50,000 entries
    # naming one record, and entries at every header of a chain of names nested in each other.
    name = b"N" * (1 << 20)

    def table_at(needle, offsets):
        items = [LONG.item(12, needle), good_preview]
        at = document(LONG, items, version=0x0302, table=[needle]).find(needle)
        return document(LONG, items, version=0x0302, table=[at + o for o in offsets])
    add("inventory-one-record-50000-times", table_at(LONG.record(name, b""), [0] * 50000))
    headers = 40000
    chain = b"".join(b"\0" + u16(-101) + u32(len(name) + 1 + 7 * (headers - 1 - k))
                     for k in range(headers)) + name + b"\0"
    add("inventory-nested-names", table_at(chain, range(0, 7 * headers, 7)))

    # A progressive JPEG whose 50,000 scans each code nothing, yet cost a pass over the picture.
    add("jpeg-50000-empty-scans", document(LONG, [preview(LONG, [LONG.item(0, information(
        1448, 1448)), inline_picture(LONG, progressive_jpeg(1448, 50000), kind=2)])]))
    return cases


def truncations(tool, work, image):
    """Every prefix of small documents written by the tool itself, in three layouts."""
    cases = []
    picture = os.path.join(work, "picture.png")
    with open(picture, "wb") as f:
        f.write(image)
    for options in (["--version", "3.2", "--form", "byte", "--store", "record"],
                    ["--version", "3.2", "--form", "long", "--store", "system-record"],
                    ["--version", "2.0", "--store", "inline"]):
        out = os.path.join(work, "made.etd")
        subprocess.run([tool, "create"] + options + [picture, out], check=True)
        with open(out, "rb") as f:
            whole = f.read()
        label = "-".join(options[1::2])
        cases.append(("created-" + label, whole, True))
        for n in range(len(whole)):
            cases.append(("cut-%s-at-%d" % (label, n), whole[:n], False))
    return cases


def bit_flips(source, variants=30):
    """The samples in examples/ with 1 to 8 bits flipped: half of them in the first 512 bytes,
    where the headers, chunk structure and object records are."""
    rng = random.Random(SEED)
    cases = []
    folder = os.path.join(source, "examples")
    for name in sorted(os.listdir(folder)):
        with open(os.path.join(folder, name), "rb") as f:
            original = f.read()
        for v in range(variants):
            data = bytearray(original)
            for _ in range(rng.randint(1, 8)):
                span = min(len(data), 512) if rng.random() < 0.5 else len(data)
                data[rng.randrange(span)] ^= 1 << rng.randrange(8)
            cases.append(("flip-%s-%d" % (name, v), bytes(data), False))
    return cases


Run = collections.namedtuple("Run", "name command status signal seconds cpu rss_kb stderr")


def run_all(tool, jobs, parallel, work, timeout):
    """Runs every (name, command, path) job, `parallel` at a time, and returns the Runs."""
    env = dict(os.environ)
    # A sanitizer report must end the run with a signal, never with an ordinary status.
    env["ASAN_OPTIONS"] = env.get("ASAN_OPTIONS", "") + ":abort_on_error=1"
    env["UBSAN_OPTIONS"] = env.get("UBSAN_OPTIONS", "") + ":halt_on_error=1:abort_on_error=1"
    pending = collections.deque(jobs)
    running = {}
    results = []
    slots = list(range(parallel))
    while pending or running:
        while pending and slots:
            slot = slots.pop()
            name, command, path = pending.popleft()
            argv = [tool, command, path]
            if command == "thumbnail":
                argv.append(os.path.join(work, "out-%d.png" % slot))
            else:
                argv.insert(2, "--json")  # which also takes stock of the object table
            err = open(os.path.join(work, "err-%d" % slot), "w+")
            process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                       stderr=err, env=env)
            running[process.pid] = (name, command, process, err, slot, time.monotonic(), False)
        pid, status, usage = os.wait4(-1, os.WNOHANG)
        if pid == 0:
            now = time.monotonic()
            for key, (name, command, process, err, slot, start, killed) in list(running.items()):
                if not killed and now - start > timeout:
                    os.kill(key, signal.SIGKILL)
                    running[key] = (name, command, process, err, slot, start, True)
            time.sleep(0.002)
            continue
        name, command, process, err, slot, start, killed = running.pop(pid)
        process.returncode = status  # reaped here, not by Popen
        err.seek(0)
        stderr = err.read()
        err.close()
        slots.append(slot)
        results.append(Run(name, command,
                           "timeout" if killed else
                           os.WEXITSTATUS(status) if os.WIFEXITED(status) else
                           "signal %d" % os.WTERMSIG(status),
                           os.WTERMSIG(status) if os.WIFSIGNALED(status) else 0,
                           time.monotonic() - start, usage.ru_utime + usage.ru_stime,
                           usage.ru_maxrss, stderr))
    return results


def verdict(run, control):
    """Why a run failed, or None."""
    if run.status == "timeout":
        return "timeout"
    if run.signal:
        return "killed by signal %d (%s)" % (run.signal, signal.Signals(run.signal).name)
    if run.status not in (0, 1, 2):
        return "exit status %d" % run.status
    for message in BAD_MESSAGES:
        if message in run.stderr:
            return "limit or sanitizer: " + run.stderr.strip().splitlines()[-1][:200]
    if control and run.status != 0:
        return "a well-formed document gave status %d: %s" % (run.status, run.stderr.strip())
    return None


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("tool")
    parser.add_argument("source")
    parser.add_argument("--sanitized", action="store_true")
    parser.add_argument("--memory-mb", type=int, default=256)
    parser.add_argument("--seconds", type=float, default=2.0)
    parser.add_argument("--jobs", type=int, default=2, help="runs at a time")
    options = parser.parse_args()
    tool = os.path.abspath(options.tool)
    timeout = options.seconds * (5 if options.sanitized else 1)
    started = time.monotonic()

    work = tempfile.mkdtemp(prefix="et-hostile-")
    image = png(4, 3)
    cases = crafted(image) + truncations(tool, work, image) + bit_flips(options.source)
    controls = {name for name, _, control in cases if control}
    documents = os.path.join(work, "documents")
    os.makedirs(documents)
    jobs = []
    for name, data, _ in cases:
        path = os.path.join(documents, name + ".etd")
        with open(path, "wb") as f:
            f.write(data)
        jobs += [(name, "thumbnail", path), (name, "info", path)]

    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    if not options.sanitized:
        limit = options.memory_mb << 20
        resource.setrlimit(resource.RLIMIT_AS, (limit, limit))
    results = run_all(tool, jobs, options.jobs, work, timeout)

    failures = [(r, why) for r in results if (why := verdict(r, r.name in controls))]
    worst_cpu = max(results, key=lambda r: r.cpu)
    worst_wall = max(results, key=lambda r: r.seconds)
    worst_rss = max(results, key=lambda r: r.rss_kb)
    def count(*prefixes):
        return sum(1 for name, _, control in cases if not control and name.startswith(prefixes))

    print("%d documents (%d well-formed controls, %d crafted, %d truncations, %d with flipped "
          "bits), %d runs in %.1f s" % (len(cases), len(controls),
                                        len(cases) - len(controls) - count("cut-", "flip-"),
                                        count("cut-"), count("flip-"), len(results),
                                        time.monotonic() - started))
    print("limits: %s, %.1f s per run" % ("no memory limit (sanitizer build)" if options.sanitized
                                           else "RLIMIT_AS %d MB" % options.memory_mb, timeout))
    print("slowest: %.3f s (%s %s); most processor time: %.3f s (%s %s)"
          % (worst_wall.seconds, worst_wall.command, worst_wall.name, worst_cpu.cpu,
             worst_cpu.command, worst_cpu.name))
    print("largest peak resident memory: %.1f MB (%s %s; the count includes this script's own "
          "pages shared at the start of each run)" % (worst_rss.rss_kb / 1024, worst_rss.command,
                                                      worst_rss.name))
    statuses = collections.Counter((r.command, r.status) for r in results)
    print("statuses: " + ", ".join("%s %s: %d" % (c, s, n) for (c, s), n in sorted(
        statuses.items(), key=lambda item: str(item[0]))))
    if failures:
        kept = os.path.join(tempfile.gettempdir(), "et-hostile-failures")
        os.makedirs(kept, exist_ok=True)
        for run, why in failures[:50]:
            print("FAIL: %s %s: %s" % (run.command, run.name, why))
            shutil.copy(os.path.join(documents, run.name + ".etd"), kept)
        if len(failures) > 50:
            print("... and %d more" % (len(failures) - 50))
        print("the failing documents are in " + kept)
    shutil.rmtree(work, ignore_errors=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())

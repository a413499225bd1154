"""Bytes of Ember Tide documents, written by hand so that any field can hold any value (big-endian).
A `Form` is one of the two chunk forms: the long form (4-byte tags, lengths and counts) of documents
before 3.0 and of 32-bit object tables, and the byte form (1-byte tags and lengths, 8-byte long
lengths, compact counts) of 64-bit tables."""
import itertools
import struct
import zlib

DOCUMENT_ID = b"Ember Tide Document\0"


def u16(value):
    return struct.pack(">H", value & 0xFFFF)


def u32(value):
    return struct.pack(">I", value & 0xFFFFFFFF)


def compact(value):
    """The compact long long: sign in bit 6 of the first byte, 6 bits there, then 7 per byte."""
    z = value ^ (value >> 63)  # the value itself, or its complement when negative
    out = bytearray([(z & 63) | (0x40 if value < 0 else 0) | (0x80 if z >= 64 else 0)])
    rest = z >> 6
    while rest:
        out.append((rest & 127) | (0x80 if rest >= 128 else 0))
        rest >>= 7
    return bytes(out)


class Form:
    def __init__(self, byte_form):
        self.byte_form = byte_form
        self.label = "byte" if byte_form else "long"

    def version(self, version):
        return bytes([(version >> 4 & 0xF0) | (version & 15)]) if self.byte_form else u16(version)

    def header(self, tag, length, short=True):
        """An item header; in the byte form the short one when the length allows it."""
        if not self.byte_form:
            return u32(tag) + u32(length)
        if short and 0 <= length <= 255:
            return bytes([tag, length])
        return bytes([tag | 0x80]) + struct.pack(">Q", length & (1 << 64) - 1)

    def item(self, tag, body, length=None):
        """An item; `length` overrides the length that its header states."""
        return self.header(tag, len(body) if length is None else length, length is None) + body

    def end(self):
        return b"\x7f" if self.byte_form else u32(-1)

    def chunk(self, items):
        return self.version(0x0100) + b"".join(items) + self.end()

    def count(self, n):
        return compact(n) if self.byte_form else u32(n)

    def string(self, text, count=None):
        n = len(text) + 1 if count is None else count
        return (bytes([100]) + compact(n) if self.byte_form else u16(-101) + u32(n)) + text + b"\0"

    def record(self, class_name, body):
        """An object written in place: marker 0, the class name, the object's body."""
        return b"\0" + self.string(class_name) + body

    def reference(self, index):  # to the table's entry `index`
        return b"\x02" + u32(index)


LONG, BYTE = Form(False), Form(True)


def information(width, height):
    return u16(0) + u32(width) + u32(height) + u32(0)


def inline_picture(form, image, kind=3, count=None):
    """Item 6 of the preview chunk: kind, byte count, the image bytes."""
    return form.item(6, u16(kind) + form.count(len(image) if count is None else count) + image)


def picture_record(form, image, width, height, count=None):
    """Item 4 of the preview chunk: a picture-data object whose image bytes end its item 3."""
    n = len(image) if count is None else count
    return form.record(b"GSMemPicData", form.chunk([form.item(0, information(width, height)),
                                                     form.item(3, u16(3) + form.count(n) + image)]))


def preview(form, items):
    return form.item(13, form.chunk(items))


def dictionary_object(form, keys, values):
    """A GSObjectDictionaryObject record; `keys` and `values` are lists of object records."""
    dictionary = form.chunk([form.item(1, form.count(len(keys)) + b"".join(keys)),
                             form.item(2, form.count(len(values)) + b"".join(values))])
    return form.record(b"GSObjectDictionaryObject", form.chunk([form.item(1, dictionary)]))


def nested_dictionaries(form, depth):
    """Dictionaries each holding the next, `depth` deep, and the offset of each record (a table
    lists them), built inside out from lengths: copying inner records would take quadratic time."""
    core = dictionary_object(form, [], [])
    inner, heads, end = len(core), [], form.end()
    keys, values = form.item(1, form.count(0)), form.count(1)
    for _ in range(depth - 1):
        values_header = form.header(2, len(values) + inner)
        dictionary = len(form.version(0x0100)) + len(keys) + len(values_header) + len(values) \
            + inner + len(end)
        heads.append(b"\0" + form.string(b"GSObjectDictionaryObject") + form.version(0x0100)
                     + form.header(1, dictionary) + form.version(0x0100) + keys + values_header
                     + values)
        inner += len(heads[-1]) + 2 * len(end)
    offsets = list(itertools.accumulate(map(len, reversed(heads)), initial=0))
    return b"".join(reversed(heads)) + core + end * (2 * (depth - 1)), offsets


def document(form, items, version=None, table=None, table_count=None, table_offset=None):
    """A whole document: without a table of version 2.0; with one of 3.x, its entries positions,
    bytes (where they first occur) or (bytes, offset) pairs; the other two override the table."""
    if table is None:
        return DOCUMENT_ID + u16(version or 0x0200) + b"".join(items) + form.end()
    body = b"".join(items) + form.end()
    offset = len(body) if table_offset is None else table_offset
    whole = DOCUMENT_ID + u16(version or 0x0302) + u16(512 if form.byte_form else 256) \
        + (struct.pack(">q", offset) if form.byte_form else u32(offset)) + body
    positions, found = [], {}  # a needle is searched for once: a table may name it 20,000 times
    for entry in table:
        if not isinstance(entry, int):
            needle, within = (entry, 0) if isinstance(entry, bytes) else entry
            if needle not in found:
                found[needle] = whole.find(needle)
                assert found[needle] >= 0, "a table entry names bytes not in the document"
            entry = found[needle] + within
        positions.append(compact(entry) if form.byte_form else u32(entry))
    return whole + u32(len(table) if table_count is None else table_count) + b"".join(positions)


def png(width, height):
    """A small opaque RGB PNG with a gradient."""
    rows = b"".join(b"\0" + b"".join(bytes((x * 255 // max(width - 1, 1),
                                            y * 255 // max(height - 1, 1), 128))
                                     for x in range(width)) for y in range(height))

    def chunk(kind, data):
        return u32(len(data)) + kind + data + u32(zlib.crc32(kind + data))

    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0,
                                                              0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def progressive_jpeg(side, empty_scans):
    """A grey progressive JPEG of side x side pixels (at most 1448, so that one end-of-band run
    covers every block): a DC scan, then `empty_scans` AC scans that each code nothing but that
    one run. Every such scan is 12 bytes, yet the decoder walks all the blocks for it."""
    blocks = ((side + 7) // 8) ** 2
    assert 1 << 14 <= blocks < 1 << 15, "one EOB14 run must cover the blocks"

    def segment(marker, body):
        return b"\xff" + bytes([marker]) + struct.pack(">H", len(body) + 2) + body

    def entropy(bits):
        bits += "1" * (-len(bits) % 8)
        return bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8)).replace(b"\xff",
                                                                                   b"\xff\x00")

    # One Huffman code each, "0": DC difference category 0, and EOB14 (a run of 2^14 + 14 bits).
    one_code = bytes([1] + [0] * 15)
    head = (b"\xff\xd8" + segment(0xDB, b"\0" + b"\1" * 64)
            + segment(0xC2, struct.pack(">BHHB", 8, side, side, 1) + b"\x01\x11\x00")
            + segment(0xC4, b"\x00" + one_code + b"\x00")
            + segment(0xC4, b"\x10" + one_code + b"\xe0"))
    dc = segment(0xDA, b"\x01\x01\x00\x00\x00\x00") + entropy("0" * blocks)
    ac = segment(0xDA, b"\x01\x01\x00\x01\x3f\x00") + entropy("0" + format(blocks - (1 << 14),
                                                                           "014b"))
    return head + dc + ac * empty_scans + b"\xff\xd9"

#!/usr/bin/env python3
"""gen_code_pages.py - writes src/text/GSCodePageTables.inc, the single-byte code pages of GSString.

Source data: the Unicode Consortium's vendor mapping files as compiled into Python 3.11's codecs
(encodings/cp1252.py from MAPPINGS/VENDORS/MICSFT/WINDOWS/CP1252.TXT, encodings/mac_roman.py from
MAPPINGS/VENDORS/APPLE/ROMAN.TXT, the revision with the euro sign at 0xDB), and Adobe's PostScript
StandardEncoding as listed below. The generator checks the entries that tell those revisions
apart and stops when one differs. No network, no third-party module:

    python3 tools/gen/gen_code_pages.py > src/text/GSCodePageTables.inc

What the framework changes on purpose, and keeps:
- Windows: the five bytes CP1252 leaves undefined (0x81 0x8D 0x8F 0x90 0x9D) read as the code
  point of the same value.
- Mac: byte 0x14 reads as U+F8FF (the Apple logo, as 0xF0 does) and 0xBD as U+2126 OHM SIGN.
- PostScript: ASCII except 0x60 (U+2018); 0x80-0x9F as Windows; 0xA0-0xFF StandardEncoding where
  it has a glyph, else Latin-1, with four positions that differ from StandardEncoding: 0x27 stays
  U+0027, 0xC7 is U+02C6, 0xCA U+00B0, 0xD0 U+201C.
- From Unicode to Windows: the 27 code points of bytes 0x80-0x9F that Latin-1 lacks, and the
  ligatures U+FB01/U+FB02 written as the texts "fi"/"fl" (codes -1 and -2).
- From Unicode to Mac: the inverse of the Mac table for 0x80-0xFF and 0x14 (U+F8FF gives 0x14),
  without U+00A2 U+00A3 U+00A9 U+00B5 (their Latin-1 bytes are already right), and U+00B1,
  U+00B2, U+00B3 with code 0, unrepresentable: the framework never writes them in Mac text.
"""
import sys

PYTHON = (3, 11)

# StandardEncoding's glyphs from 0xA0 up, as the framework reads them (its four own choices
# included); every other byte from 0xA0 up reads as its Latin-1 code point.
PS_HIGH = {
    0xA1: 0x00A1, 0xA2: 0x00A2, 0xA3: 0x00A3, 0xA4: 0x2044, 0xA5: 0x00A5, 0xA6: 0x0192,
    0xA7: 0x00A7, 0xA8: 0x00A4, 0xA9: 0x0027, 0xAA: 0x201C, 0xAB: 0x00AB, 0xAC: 0x2039,
    0xAD: 0x203A, 0xAE: 0xFB01, 0xAF: 0xFB02, 0xB1: 0x2013, 0xB2: 0x2020, 0xB3: 0x2021,
    0xB4: 0x00B7, 0xB6: 0x00B6, 0xB7: 0x2022, 0xB8: 0x201A, 0xB9: 0x201E, 0xBA: 0x201D,
    0xBB: 0x00BB, 0xBC: 0x2026, 0xBD: 0x2030, 0xBF: 0x00BF, 0xC1: 0x0060, 0xC2: 0x00B4,
    0xC3: 0x02C6, 0xC4: 0x02DC, 0xC5: 0x00AF, 0xC6: 0x02D8, 0xC7: 0x02C6, 0xC8: 0x00A8,
    0xCA: 0x00B0, 0xCB: 0x00B8, 0xCD: 0x02DD, 0xCE: 0x02DB, 0xCF: 0x02C7, 0xD0: 0x201C,
    0xE1: 0x00C6, 0xE3: 0x00AA, 0xE8: 0x0141, 0xE9: 0x00D8, 0xEA: 0x0152, 0xEB: 0x00BA,
    0xF1: 0x00E6, 0xF5: 0x0131, 0xF8: 0x0142, 0xF9: 0x00F8, 0xFA: 0x0153, 0xFB: 0x00DF,
}

LIGATURES = {0xFB01: -1, 0xFB02: -2}  # ~code selects the text: 0 "fi", 1 "fl"


def fail(message):
    sys.stderr.write(f"gen_code_pages: {message}\n")
    sys.exit(1)


def decode_byte(byte, codec):
    try:
        text = bytes([byte]).decode(codec)
    except UnicodeDecodeError:
        return None
    if len(text) != 1:
        fail(f"{codec} reads byte {byte:#04x} as {len(text)} characters")
    return ord(text)


def windows_table():
    table = []
    for byte in range(256):
        code = decode_byte(byte, "cp1252")
        table.append(byte if code is None else code)
    undefined = [b for b in range(256) if decode_byte(b, "cp1252") is None]
    if undefined != [0x81, 0x8D, 0x8F, 0x90, 0x9D]:
        fail(f"cp1252 leaves {[hex(b) for b in undefined]} undefined, expected the five of CP1252.TXT")
    return table


def mac_table():
    table = [decode_byte(byte, "mac_roman") for byte in range(256)]
    expected = {0xDB: 0x20AC, 0xBD: 0x03A9, 0xF0: 0xF8FF, 0x14: 0x0014, 0xB1: 0x00B1}
    for byte, code in expected.items():
        if table[byte] != code:
            fail(f"mac_roman reads {byte:#04x} as U+{table[byte]:04X}, not the ROMAN.TXT revision expected")
    table[0x14] = 0xF8FF
    table[0xBD] = 0x2126
    return table


def postscript_table(windows):
    table = list(range(128))
    table[0x60] = 0x2018
    table += windows[0x80:0xA0]
    table += [PS_HIGH.get(byte, byte) for byte in range(0xA0, 0x100)]
    return table


def unicode_to_windows(windows):
    entries = {windows[b]: b for b in range(0x80, 0xA0) if windows[b] > 0xFF}
    entries.update(LIGATURES)
    if len(entries) != 29:
        fail(f"the Windows from-Unicode table has {len(entries)} entries, not 29")
    return sorted(entries.items())


def unicode_to_mac(mac):
    entries = {}
    for byte in range(0x80, 0x100):
        entries[mac[byte]] = byte
    entries[mac[0x14]] = 0x14  # U+F8FF: 0x14, not 0xF0
    for latin in (0x00A2, 0x00A3, 0x00A9, 0x00B5):
        if entries.get(latin) != latin:
            fail(f"U+{latin:04X} is not at its Latin-1 byte in the Mac table")
        del entries[latin]
    for unrepresentable in (0x00B1, 0x00B2, 0x00B3):
        entries[unrepresentable] = 0
    if len(entries) != 126:
        fail(f"the Mac from-Unicode table has {len(entries)} entries, not 126")
    return sorted(entries.items())


def to_unicode_rows(name, table):
    lines = [f"const unsigned short {name}[256] = {{"]
    for row in range(0, 256, 8):
        cells = ", ".join(f"0x{code:04X}" for code in table[row:row + 8])
        lines.append(f"    {cells}, // {row:02X}")
    lines.append("};")
    return lines


def from_unicode_rows(name, entries):
    lines = [f"const unsigned short {name}[{2 * len(entries)}] = {{"]
    for i in range(0, len(entries), 4):
        cells = []
        for code, byte in entries[i:i + 4]:
            value = byte & 0xFFFF  # negative codes (ligatures) as their 16-bit pattern
            cells.append(f"0x{code:04X}, 0x{value:04X}")
        lines.append("    " + ", ".join(cells) + ",")
    lines.append("};")
    return lines


def main():
    if sys.version_info[:2] != PYTHON:
        fail(f"run with Python {PYTHON[0]}.{PYTHON[1]}: its codecs are the named source data")
    windows = windows_table()
    mac = mac_table()
    postscript = postscript_table(windows)
    out = [
        "// GSCodePageTables.inc - generated by tools/gen/gen_code_pages.py from Python 3.11's cp1252",
        "// and mac_roman codecs (Unicode Consortium CP1252.TXT, ROMAN.TXT) and PostScript",
        "// StandardEncoding, with the framework's own deviations. Do not edit.",
        "//",
        "// To-Unicode tables: the code point of each byte. From-Unicode tables: (code point, byte",
        "// code) pairs sorted by code point; a code read as signed below 0 selects ligature ~code.",
    ]
    out += to_unicode_rows("__winToUnicode", windows)
    out += to_unicode_rows("__macToUnicode", mac)
    out += to_unicode_rows("__psToUnicode", postscript)
    out += from_unicode_rows("__unicodeToWin", unicode_to_windows(windows))
    out += from_unicode_rows("__unicodeToMac", unicode_to_mac(mac))
    sys.stdout.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""quality.py - PSNR between two PNG files of the same pixel size, standard library only.

Usage: bench/quality.py [--json] TEST.png REFERENCE.png

bench/peers.sh compares each of our thumbnails with a careful downscale of the same picture made
by another program at exactly our output size. Both files are decoded here (zlib and the five row
filters; 8- and 16-bit grey, grey with alpha, RGB, RGBA and palette images, not interlaced), and
pixels with alpha are composited over mid-grey (128) before the comparison, so that a wrong
colour under a nearly transparent pixel counts as little as it shows. The PSNR is over the three
colour channels with a peak of 255; the alpha channel's own PSNR is printed as well when either
file has one. Identical pictures give "inf".

Exit status: 0 printed; 2 unreadable file or different pixel sizes.
"""

import json
import math
import struct
import sys
import zlib

PNG_SIGNATURE = b"\x89PNG\r\n\x1a\n"
CHANNELS = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}


class PNGError(Exception):
    pass


def _paeth(a, b, c):
    p = a + b - c
    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
    if pa <= pb and pa <= pc:
        return a
    return b if pb <= pc else c


def _unfilter(data, height, stride, bpp):
    rows = []
    prev = bytearray(stride)
    pos = 0
    for _ in range(height):
        if pos + 1 + stride > len(data):
            raise PNGError("image data is short")
        kind = data[pos]
        row = bytearray(data[pos + 1:pos + 1 + stride])
        pos += 1 + stride
        if kind == 1:
            for i in range(bpp, stride):
                row[i] = (row[i] + row[i - bpp]) & 255
        elif kind == 2:
            for i in range(stride):
                row[i] = (row[i] + prev[i]) & 255
        elif kind == 3:
            for i in range(stride):
                left = row[i - bpp] if i >= bpp else 0
                row[i] = (row[i] + ((left + prev[i]) >> 1)) & 255
        elif kind == 4:
            for i in range(stride):
                left = row[i - bpp] if i >= bpp else 0
                upper_left = prev[i - bpp] if i >= bpp else 0
                row[i] = (row[i] + _paeth(left, prev[i], upper_left)) & 255
        elif kind != 0:
            raise PNGError("unknown row filter %d" % kind)
        rows.append(row)
        prev = row
    return rows


def read_png(path):
    """Returns (width, height, pixels): pixels is a list of (r, g, b, a) tuples, 8 bits each."""
    with open(path, "rb") as f:
        data = f.read()
    if not data.startswith(PNG_SIGNATURE):
        raise PNGError("not a PNG file")
    pos = len(PNG_SIGNATURE)
    header = None
    palette = []
    transparency = b""
    compressed = bytearray()
    while pos + 8 <= len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        pos += 12 + length
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"PLTE":
            palette = [tuple(body[i:i + 3]) for i in range(0, len(body) - 2, 3)]
        elif kind == b"tRNS":
            transparency = body
        elif kind == b"IDAT":
            compressed += body
        elif kind == b"IEND":
            break
    if header is None:
        raise PNGError("no IHDR chunk")
    width, height, depth, color, _, _, interlace = header
    if interlace:
        raise PNGError("interlaced PNG files are not handled")
    if color not in CHANNELS or depth not in (8, 16) and not (color in (0, 3) and depth in (1, 2, 4)):
        raise PNGError("colour type %d with depth %d is not handled" % (color, depth))
    channels = CHANNELS[color]
    bits = channels * depth
    stride = (width * bits + 7) // 8
    rows = _unfilter(zlib.decompress(bytes(compressed)), height, stride, max(1, bits // 8))

    pixels = []
    for row in rows:
        if depth < 8:
            per_byte = 8 // depth
            mask = (1 << depth) - 1
            samples = [(row[x // per_byte] >> (8 - depth * (x % per_byte + 1))) & mask
                       for x in range(width)]
        elif depth == 16:
            samples = [row[i] for i in range(0, len(row), 2)]  # the high byte
        else:
            samples = row
        for x in range(width):
            s = samples[x * channels:(x + 1) * channels]
            if color == 3:
                index = s[0]
                r, g, b = palette[index] if index < len(palette) else (0, 0, 0)
                a = transparency[index] if index < len(transparency) else 255
            elif color == 0:
                v = s[0] * 255 // ((1 << depth) - 1) if depth < 8 else s[0]
                r = g = b = v
                a = 255
            elif color == 4:
                r = g = b = s[0]
                a = s[1]
            elif color == 2:
                r, g, b = s
                a = 255
            else:
                r, g, b, a = s
            pixels.append((r, g, b, a))
    return width, height, pixels


def over_grey(pixel):
    r, g, b, a = pixel
    return tuple((c * a + 128 * (255 - a) + 127) // 255 for c in (r, g, b))


def psnr(squared_error, count):
    if squared_error == 0:
        return math.inf
    return 10 * math.log10(255 * 255 * count / squared_error)


def compare(test_path, reference_path):
    tw, th, test = read_png(test_path)
    rw, rh, reference = read_png(reference_path)
    if (tw, th) != (rw, rh):
        raise PNGError("pixel sizes differ: %dx%d and %dx%d" % (tw, th, rw, rh))
    colour_error = 0
    alpha_error = 0
    has_alpha = any(p[3] != 255 for p in test) or any(p[3] != 255 for p in reference)
    for p, q in zip(test, reference):
        for c, d in zip(over_grey(p), over_grey(q)):
            colour_error += (c - d) * (c - d)
        alpha_error += (p[3] - q[3]) * (p[3] - q[3])
    result = {"width": tw, "height": th, "psnr": psnr(colour_error, 3 * tw * th)}
    if has_alpha:
        result["alpha_psnr"] = psnr(alpha_error, tw * th)
    return result


def main(argv):
    as_json = "--json" in argv
    files = [a for a in argv if a != "--json"]
    if len(files) != 2:
        sys.stderr.write(__doc__.split("\n\n")[1] + "\n")
        return 2
    try:
        result = compare(files[0], files[1])
    except (OSError, PNGError, zlib.error) as e:
        sys.stderr.write("quality.py: %s\n" % e)
        return 2
    if as_json:
        print(json.dumps({k: (None if v == math.inf else v) if isinstance(v, float) else v
                          for k, v in result.items()}))
    else:
        line = "%dx%d PSNR %.2f dB" % (result["width"], result["height"], result["psnr"])
        if "alpha_psnr" in result:
            line += ", alpha %.2f dB" % result["alpha_psnr"]
        print(line)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

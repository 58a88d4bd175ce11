#!/usr/bin/env python3
"""Writes the seed corpora under fuzz/corpus/<harness>/: small valid and
invalid samples in the layout each harness reads, so a short run starts from
real coverage.  Run again after changing a harness's input layout."""
import hashlib
import os
import shutil
import struct
import sys

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
TEXT = "Grüße, мир! 漢字 €5 \U0001D11E \U0001F600 end\n"
ENCS = ["utf-8", "utf-16le", "utf-16be", "ucs-2le", "ucs-2be", "ucs-4le", "ucs-4be", "ascii", "ebcdic"]
PY = {"utf-8": "utf-8", "utf-16le": "utf-16-le", "utf-16be": "utf-16-be", "ucs-2le": "utf-16-le",
      "ucs-2be": "utf-16-be", "ucs-4le": "utf-32-le", "ucs-4be": "utf-32-be", "ascii": "ascii", "ebcdic": "cp500"}
BAD8 = [b"\xf4\x90\x80\x80", b"\xf8\x88\x80\x80\x80", b"\xfc\x84\x80\x80\x80\x80", b"\xe2\x41", b"\xc0\x80",
        b"\xed\xa0\x80", b"\xe2\x82", b"\x80", b"\xff", b"\xc2\x85"]


def fits(enc, text):
    if enc == "ascii":
        return "".join(c if ord(c) < 0x80 else "?" for c in text)
    if enc == "ebcdic":
        return "".join(c if ord(c) < 0x100 else "?" for c in text)
    if enc.startswith("ucs-2"):
        return "".join(c if ord(c) < 0x10000 else "?" for c in text)
    return text


def encode(enc, text):
    return fits(enc, text).encode(PY[enc])


def bad(enc):
    """Invalid pieces in the encoding's own units."""
    if enc == "utf-8":
        return BAD8
    if enc in ("ascii", "ebcdic"):
        return [b"\x80\xff", b"\x00\x1f\x7f"]
    if enc.startswith("ucs-4"):
        f = "<I" if enc.endswith("le") else ">I"
        return [struct.pack(f, v) for v in (0x110000, 0x80000000, 0xD800)] + [b"\x41\x00"]
    f = "<H" if enc.endswith("le") else ">H"
    return [struct.pack(f, 0xD800), struct.pack(f, 0xDC00), struct.pack(f, 0xD800) + struct.pack(f, 0x41),
            b"\x41"]


def nuvconv():
    seeds = []
    for i, src in enumerate(ENCS):
        good = encode(src, TEXT)
        for j, dst in enumerate(ENCS):
            if (i + j) % 3 == 0 or src == dst:
                seeds.append(bytes([i, j, 0, 5]) + good)
        for k, piece in enumerate(bad(src)):
            half = len(good) // 2 - (len(good) // 2) % (4 if src.startswith("ucs-4") else 2)
            seeds.append(bytes([i, k % 9, k % 3 + 3 * (k % 2), k * 7 % 128]) + good[:half] + piece + good[half:])
    return seeds


def convert():
    u8 = TEXT.encode()
    return [bytes([sel, sub]) + body for sel, sub, body in
            [(1, 0, u8), (3, 1, u8), (0, 2, TEXT.encode("utf-16-le")), (5, 0, TEXT.encode("utf-32-le")),
             (7, 1, b"a" + b"".join(BAD8)), (2, 0, b"\x00\xd8\x41\x00\x00\xdc"), (6, 2, b"x" * 40 + u8),
             (4, 0, struct.pack("<3I", 0x41, 0x110000, 0x80000000))]]


def ctype():
    words = ["Hello World", "ΣΊΣΥΦΟΣ σίσυφος", "İstanbul ıi", "Straße STRASSE", "ǅungla", "ABCdef\U00010400"]
    out = []
    for m, w in enumerate(words):
        u = w.encode("utf-16-le") + w.swapcase().encode("utf-16-le")
        out.append(bytes([m % 3, m * 17 % 256, len(w) + m, len(w)]) + u)
    return out


def number():
    texts = ["123", "-0x1F", "1e308", "1e-400", "  +42abc", "0777", "18446744073709551616",
             "-9223372036854775809", "1.7976931348623157e308", "4.9e-324", "0.1", "2.5e-310", "zz9", "  -"]
    return [bytes([b]) + t.encode() for b, t in zip([10, 16, 0, 10, 10, 8, 10, 10, 0, 0, 10, 0, 36, 10], texts)]


def scanf():
    pairs = [("%d %s", "42 hello"), ("%[a-z]%n", "abc1"), ("%5c", "abcdef"), ("%x %o %i", " ff 17 0x10"),
             ("%f %e %g", "1.5 2e10 -0.25"), ("%*d %3s %%", "1 abcdef %"), ("%lld %hhu", "-9 300"),
             ("%[^,],%s", "a b,c"), ("%d", "\xc3\xa9"), ("%2$d", "5")]
    return [f.encode() + b"\0" + t.encode("latin-1") for f, t in pairs]


def stream_input():
    bodies = [TEXT.encode() * 3, b"12 34\nword\n-7\n", b"line\xff\xfe bad\n\xe2\x82\n", b"\n\n\n",
              ("x" * 100 + "\U0001F600\n").encode(), b"\xf0\x9f\x98"]
    return [bytes([c]) + b for c, b in zip([5, 75, 150, 2, 69, 210], bodies)]


def string():
    u = TEXT.encode("utf-16-le")
    return [bytes([3, 0x6D, 0x00, 20]) + u, bytes([8, 0x00, 0xD8, 0]) + b"\x00\xd8a\x00" * 10,
            bytes([0x41, 0x20, 0, 255]) + u * 4, bytes([1, 0, 0, 5]) + b"\xff\xfe\x80\x81" * 8]


def fmt():
    formats = ["%d %s %5.2f %-10x %lld %%", "%#o %+i % d %05u %hhd %zx", "%*.*s|%-*c|%p", "%10.4e %G %a %.0f",
               "%2$s %1$d", "%Q %", "%ls %lc"]
    out = [bytes([1]) + f.encode() for f in formats]
    # the engine: literal units and directives (op >= 64, symbol, flags, width, precision, value bytes)
    out.append(bytes([0, 1, 2, 3, 64, 0, 3, 1, 0] + [0] * 8 + [64, 10, 0, 0, 0, 1, 65, 14, 1, 5, 9] + [0x40] * 8))
    # the writer: buffer size, budget, unit size, flag, then UTF-16 units
    out.append(bytes([2, 7, 0, 40, 1, 0]) + TEXT.encode("utf-16-le"))
    out.append(bytes([2, 0, 0, 3, 0, 1]) + b"\x00\xd8A\x00" * 4)
    # the floating path: symbol, precision, IEEE bits
    out.append(bytes([3]) + b"".join(bytes([s, p]) + struct.pack(">d", v) for s, p, v in
                                     [(0, 6, 0.1), (2, 17, 1e300), (4, 3, -2.5e-310), (1, 0, 0.5), (3, 40, 123.456)]))
    return out


HARNESSES = {"nuvconv_fuzz": nuvconv, "convert_fuzz": convert, "ctype_fuzz": ctype, "number_fuzz": number,
             "scanf_fuzz": scanf, "stream_input_fuzz": stream_input, "string_fuzz": string, "format_fuzz": fmt}

if __name__ == "__main__":
    for name, make in HARNESSES.items():
        d = os.path.join(ROOT, name)
        shutil.rmtree(d, ignore_errors=True)
        os.makedirs(d)
        for seed in make():
            with open(os.path.join(d, hashlib.sha1(seed).hexdigest()[:16]), "wb") as f:
                f.write(seed)
    sys.exit(0)

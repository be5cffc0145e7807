"""Writes a recording whose messages are hard to write into tables: odd_texts.py [RATE OF A SECOND BLOCK [FIRST TIME]]"""
import struct
import sys

TEXTS = [
    b'"begins with a quote', b'ends with one"', b'in the "middle"', b'"', b'""', b"tab\there", b"line\nend", b"cr\rhere",
    b"comma, and; semicolon", b"#comment", b"NA", b"nan", b".", b"", b" blanks ", b"back\\slash \\n", b"gr\xfc\xdfe",
    "grüße ✓".encode(), b"n/a", b"'single'", b"plain",
]


def block(time, rate):
    begin = struct.pack(">HBI", 0xCF00, 0x21, time) + bytes.fromhex("41%04x0000" % rate) + bytes.fromhex(
        "30000a 51000a 4b00120000 560001 b48540 00")
    samples = b"".join(struct.pack(">HIhhhH", 0xA541, time + 1 + i, 9604 + i, 5401, 1200, 7) for i in range(4))
    return begin + samples + struct.pack(">HBIB", 0x1000, 0x21, time + 8, 0)


def message(time, text):
    return struct.pack(">HBIBH", 0x1800, 0x21, time, 0x5E, len(text)) + text + b"\0"


HEAD = b"QM_OPTICORE_COMBFILE\nVERSION: PUPILON V2 7\nSOURCE: PUPILON LX\nENDP:\n"

if __name__ == "__main__":
    first = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    records = block(first, 1000)
    if len(sys.argv) > 1:
        records += block(first + 2000, int(sys.argv[1]))
    records += b"".join(message(first + 3000 + 10 * i, text) for i, text in enumerate(TEXTS))
    sys.stdout.buffer.write(HEAD + records + b"\0\0")

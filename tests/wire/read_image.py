#!/usr/bin/env python3
"""Reads wire images of messages, written from docs/reference/wire-format.md alone.

    read_image.py FILE              prints the message in FILE as JSON
    read_image.py --compare PROGRAM COUNT SEED
                                    runs PROGRAM COUNT SEED, whose lines are an image in hexadecimal, a tab, and the
                                    JSON that should come out; fails at the first line that differs
"""
import json
import struct
import subprocess
import sys

SCALARS = {1: "?", 2: "b", 3: "B", 4: "<h", 5: "<H", 6: "<i", 7: "<I", 8: "<q", 9: "<Q", 10: "4s", 11: "8s",
           12: ">H", 13: ">I", 14: "<qI"}
STRING, MESSAGE, OPAQUE, XML, STRINGS, MESSAGES = 15, 16, 17, 18, 47, 48
USER, NAMED, HAS_ID = 63, 0x40, 0x80


class Image:
    def __init__(self, data, start=0):
        self.data, self.start, self.at = data, start, start
        magic, version, zero, self.size, self.count = struct.unpack("<2sBBII", self.take(12))
        assert (magic, version, zero) == (b"QM", 1, 0), "no message begins here"

    def take(self, size):
        assert self.at + size <= len(self.data), "the image is cut short"
        self.at += size
        return self.data[self.at - size:self.at]

    def length(self):
        value = shift = 0
        while True:
            byte = self.take(1)[0]
            value |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                return value

    def align(self, to):
        assert not any(self.take(-(self.at - self.start) % to)), "padding is not zero"

    def text(self):
        end = self.data.index(0, self.at)
        return self.take(end + 1 - self.at)[:-1].hex()

    def scalar(self, code):
        values = struct.unpack(SCALARS[code], self.take(struct.calcsize(SCALARS[code])))
        value = values[0] if len(values) == 1 else list(values)
        return value.hex() if isinstance(value, bytes) else value

    def message(self):
        self.align(8)
        inner = Image(self.data, self.at)
        fields = inner.fields()
        self.at = inner.at
        return fields

    def value(self, code):
        if code in SCALARS:
            return self.scalar(code)
        if code == MESSAGE:
            return self.message()
        if code in (OPAQUE, XML) or code >= 128:
            return self.take(self.length()).hex()
        if code == STRING:
            return self.take(self.length())[:-1].hex()
        count = self.length()
        if code == STRINGS:
            size = self.length()
            end = self.at + size
            texts = [self.text() for _ in range(count)]
            assert self.at == end, "an array of strings has another size"
            return texts
        if code == MESSAGES:
            self.align(8)
            return [self.message() for _ in range(count)]
        self.align(struct.calcsize(SCALARS[code - 32]))
        return [self.scalar(code - 32) for _ in range(count)]

    def field(self):
        head = self.take(1)[0]
        code = head & 0x3F
        if code == USER:
            code = self.take(1)[0]
        number = struct.unpack("<H", self.take(2))[0] if head & HAS_ID else 0
        name = self.text() if head & NAMED else None
        return {"type": code, "id": number, "name": name, "value": self.value(code)}

    def fields(self):
        fields = [self.field() for _ in range(self.count)]
        assert self.at == self.start + self.size, "the fields do not fill the image"
        return fields


def compare(program):
    output = subprocess.run(program, check=True, capture_output=True, encoding="utf-8").stdout
    lines = output.splitlines()
    for number, line in enumerate(lines, 1):
        image, expected = line.split("\t")
        got = Image(bytes.fromhex(image)).fields()
        if got != json.loads(expected):
            sys.exit(f"image {number} of {' '.join(program)} differs:\n{image}\n{expected}\n{json.dumps(got)}")
    assert lines, "the program wrote no image"
    print(f"{len(lines)} images read alike")


if __name__ == "__main__":
    if len(sys.argv) == 5 and sys.argv[1] == "--compare":
        compare(sys.argv[2:])
    elif len(sys.argv) == 2:
        print(json.dumps(Image(open(sys.argv[1], "rb").read()).fields(), indent=1))
    else:
        sys.exit(__doc__)

#!/usr/bin/env python3
"""Reads a store's folders without LevelDB; docs/format.md describes the bytes.

readstore.py FOLDER...   prints each row of the folders, in the order of the keys: key, tab, value
readstore.py --fields    prints the fields of each key that stands on a line of standard input

Nothing is locked or changed. All rows that were written before the start are found, also while a process writes.
"""
import json
import os
import sys

LOG_BLOCK, LOG_HEADER, TABLE_FOOTER, BLOCK_TRAILER = 32768, 7, 48, 5
PUT = 1
TABLE_MAGIC = 0xdb4775248b80fb57
MOST_TRIES = 10


def fields(key):
    """The fields of a key. Later ones of a name win; pieces that are not name>value count for nothing."""
    pieces = (piece.split(b">") for piece in key.split(b"<"))
    return {piece[0].decode(): piece[1].decode() for piece in pieces if len(piece) == 2}


def varint(data, at):
    """Seven bits a byte, the lowest first; the top bit says that more follow. The number, and what follows."""
    number, shift = 0, 0
    while data[at] >= 0x80:
        number |= (data[at] & 0x7f) << shift
        at, shift = at + 1, shift + 7
    return number | data[at] << shift, at + 1


def text(data, at):
    """A length and as many bytes."""
    length, at = varint(data, at)
    return data[at:at + length], at + length


def log_batches(data):
    """The write batches of a log. A batch stands in one piece (type 1) or several (2, 3..., 4)."""
    batch, at = b"", 0
    while at + LOG_HEADER <= len(data):
        if LOG_BLOCK - at % LOG_BLOCK < LOG_HEADER:
            at += LOG_BLOCK - at % LOG_BLOCK  # the rest of the block is filled with zeros
            continue
        length, kind = int.from_bytes(data[at + 4:at + 6], "little"), data[at + 6]
        piece = data[at + LOG_HEADER:at + LOG_HEADER + length]
        if kind == 0 or len(piece) < length:
            return  # a batch that did not get to the disk as a whole
        batch = piece if kind in (1, 2) else batch + piece
        if kind in (1, 4):
            yield batch
        at += LOG_HEADER + length


def log_rows(data):
    for batch in log_batches(data):
        sequence, at = int.from_bytes(batch[:8], "little"), 12
        for number in range(int.from_bytes(batch[8:12], "little")):
            kind = batch[at]
            key, at = text(batch, at + 1)
            value, at = text(batch, at) if kind == PUT else (None, at)
            yield key, sequence + number, value


def unpack(data):
    """Snappy: a length, then literals and copies of what was unpacked before."""
    length, at = varint(data, 0)
    out = bytearray()
    while at < len(data):
        tag, at = data[at], at + 1
        if tag & 3 == 0:
            size, extra = (tag >> 2) + 1, max(0, (tag >> 2) - 59)
            if extra:
                size = int.from_bytes(data[at:at + extra], "little") + 1
            out += data[at + extra:at + extra + size]
            at += extra + size
            continue
        if tag & 3 == 1:
            size, back, at = (tag >> 2 & 7) + 4, tag >> 5 << 8 | data[at], at + 1
        else:
            width = 2 if tag & 3 == 2 else 4
            size, back, at = (tag >> 2) + 1, int.from_bytes(data[at:at + width], "little"), at + width
        for _ in range(size):
            out.append(out[-back])
    assert len(out) == length
    return bytes(out)


def block(data, handle):
    """The entries of the block that `handle`, an offset and a size, names."""
    offset, at = varint(handle, 0)
    size, _ = varint(handle, at)
    body, packed = data[offset:offset + size], data[offset + size] == 1
    body = unpack(body) if packed else body
    end = len(body) - 4 * (int.from_bytes(body[-4:], "little") + 1)
    key, at = b"", 0
    while at < end:
        shared, at = varint(body, at)
        rest, at = varint(body, at)
        length, at = varint(body, at)
        key = key[:shared] + body[at:at + rest]
        yield key, body[at + rest:at + rest + length]
        at += rest + length


def table_rows(data):
    footer = data[-TABLE_FOOTER:]
    if int.from_bytes(footer[-8:], "little") != TABLE_MAGIC:
        return  # it is just being written, from files that are still there
    _, at = varint(footer, 0)  # the meta index is not needed
    _, at = varint(footer, at)
    for _, handle in block(data, footer[at:]):
        for key, value in block(data, handle):
            mark = int.from_bytes(key[-8:], "little")
            yield key[:-8], mark >> 8, value if mark & 0xff == PUT else None


READERS = {".ldb": table_rows, ".log": log_rows}


def rows(folder):
    """Key to value. A key that was written again has its value of the highest sequence number."""
    for _ in range(MOST_TRIES - 1):
        try:
            return rows_of_files(folder)
        except FileNotFoundError:  # its rows are in a newer table by now
            pass
    return rows_of_files(folder)


def rows_of_files(folder):
    # One listing ahead of all reading: a log of a later listing would lack what became a table in between.
    newest = {}
    for name in os.listdir(folder):
        read = READERS.get(os.path.splitext(name)[1])
        if read is None:
            continue
        with open(os.path.join(folder, name), "rb") as file:
            for key, sequence, value in read(file.read()):
                if key not in newest or newest[key][0] < sequence:
                    newest[key] = sequence, value
    return {key: newest[key][1] for key in sorted(newest) if newest[key][1] is not None}


def main(arguments):
    if arguments == ["--fields"]:
        for line in sys.stdin.buffer.read().splitlines():
            print(json.dumps(fields(line), ensure_ascii=False))
        return
    for folder in arguments:
        for key, value in rows(folder).items():
            sys.stdout.buffer.write(key + b"\t" + value + b"\n")


if __name__ == "__main__":
    main(sys.argv[1:])

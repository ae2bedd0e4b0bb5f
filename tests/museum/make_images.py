#!/usr/bin/env python3
"""Makes sparse disk images from the recipes in exhibits.txt.

usage: make_images.py FOLDER [NAME ...]      (no NAME: all of them)

Prints a line per image: its name, then what the recipe says of it, as words key=value.
A recipe's lines:
    sectors N                        size of the disk in sectors of 512 bytes
    partition N START SECTORS TYPE   a primary partition of the MS-DOS label; TYPE hexadecimal
    at OFFSET FIELD ...              bytes from OFFSET on, from the end of the disk when it is negative. A FIELD is
                                     u32:VALUE or u64:VALUE (big-endian), le32:VALUE, text:BYTES:WORD, zero:BYTES
    is KEY=VALUE ...                 the verdicts on this disk
"""
import os, struct, sys

SECTOR = 512
INTEGERS = {'u32': '>I', 'u64': '>Q', 'le32': '<I'}


def recipes_read(path):
    recipes, lines = {}, None
    for line in open(path, encoding='ascii'):
        line = line.split('#')[0].strip()
        if line.startswith('['):
            lines = recipes[line.strip('[]')] = []
        elif line:
            lines.append(line.split())
    return recipes


def field_bytes(field):
    kind, _, value = field.partition(':')
    if kind in INTEGERS:
        return struct.pack(INTEGERS[kind], int(value, 0))
    room, _, word = value.partition(':')
    if len(word) > int(room):
        sys.exit(f'{field}: the word does not fit')
    return word.encode('ascii').ljust(int(room), b'\0')


def image_make(recipe, path):
    """Returns the verdicts."""
    verdicts, size = [], 0
    with open(path, 'wb') as image:
        for verb, *words in recipe:
            if verb == 'sectors':
                size = int(words[0]) * SECTOR
                image.truncate(size)
            elif verb == 'partition':
                number, start, sectors = map(int, words[:3])
                image.seek(446 + 16 * (number - 1))
                image.write(struct.pack('<4xB3xII', int(words[3], 16), start, sectors))
                image.seek(510)
                image.write(b'\x55\xaa')
            elif verb == 'at':
                offset = int(words[0])
                image.seek(offset if offset >= 0 else size + offset)
                image.write(b''.join(map(field_bytes, words[1:])))
                if image.tell() > size:
                    sys.exit(f'{path}: bytes behind the end of the disk')
            elif verb == 'is':
                verdicts += words
            else:
                sys.exit(f'{path}: no such verb: {verb}')
    return verdicts


def main():
    folder, *names = sys.argv[1:]
    os.makedirs(folder, exist_ok=True)
    recipes = recipes_read(os.path.join(os.path.dirname(os.path.abspath(__file__)), 'exhibits.txt'))
    for name in names or recipes:
        print(name, *image_make(recipes[name], os.path.join(folder, name)))


if __name__ == '__main__':
    main()

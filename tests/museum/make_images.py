#!/usr/bin/env python3
"""Makes sparse disk images from the recipes in exhibits.txt.

usage: make_images.py FOLDER [NAME ...]      (no NAME: all of them)

Prints a line per image: its name, then what the recipe says of it, as words key=value. A recipe's lines:
    [NAME] SECTORS START+SECTORS:TYPE ... KEY=VALUE ...
                                     size of the disk and its primary partitions, in sectors of 512 bytes, TYPE
                                     hexadecimal; and the verdicts on this disk that differ from those of a blank one
    at OFFSET FIELD ...              bytes from OFFSET on, from the end of the disk when it is negative. A FIELD is
                                     u32:VALUE or u64:VALUE (big-endian), le32:VALUE, text:BYTES:WORD, zero:BYTES
Before them, `let NAME WORD ...` gives words a name, by which $NAME stands for them.
"""
import os, struct, sys

SECTOR = 512
INTEGERS = {'u32': '>I', 'u64': '>Q', 'le32': '<I'}
BLANK = {'check': '0', 'root': '0', 'usable': 'not-found'}


def recipes_read(path):
    recipes, lines, names = {}, None, {}
    for line in open(path, encoding='ascii'):
        words = [word for name in line.split('#')[0].split() for word in names.get(name, [name])]
        if words and words[0] == 'let':
            names['$' + words[1]] = words[2:]
        elif words and words[0].startswith('['):
            lines = recipes[words[0].strip('[]')] = [words[1:]]
        elif words:
            lines.append(words)
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
    (sectors, *words), *writes = recipe
    verdicts, size = dict(BLANK), int(sectors) * SECTOR
    partitions = [word for word in words if '=' not in word]
    verdicts.update(word.split('=') for word in words if '=' in word)
    with open(path, 'wb') as image:
        image.truncate(size)
        for number, partition in enumerate(partitions):
            start, _, rest = partition.partition('+')
            length, _, kind = rest.partition(':')
            image.seek(446 + 16 * number)
            image.write(struct.pack('<4xB3xII', int(kind, 16), int(start), int(length)))
        if partitions:
            image.seek(510)
            image.write(b'\x55\xaa')
        for verb, offset, *fields in writes:
            if verb != 'at':
                sys.exit(f'{path}: no such verb: {verb}')
            image.seek(int(offset) if int(offset) >= 0 else size + int(offset))
            image.write(b''.join(map(field_bytes, fields)))
            if image.tell() > size:
                sys.exit(f'{path}: bytes behind the end of the disk')
    return [f'{key}={value}' for key, value in verdicts.items()]


def main():
    folder, *names = sys.argv[1:]
    os.makedirs(folder, exist_ok=True)
    recipes = recipes_read(os.path.join(os.path.dirname(os.path.abspath(__file__)), 'exhibits.txt'))
    for name in names or recipes:
        print(name, *image_make(recipes[name], os.path.join(folder, name)))


if __name__ == '__main__':
    main()

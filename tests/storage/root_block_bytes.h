// A root block as bytes written by hand, each field with a value of its own.
#pragma once

#include <string>

#include "storage/root_block.h"

inline const std::string kHandHeader = std::string("NORVESSA_ROOT_BLOCK") + std::string(45, '\0') +
                                       std::string("\0\0\0\3"
                                                   "\0\0\0\0\0\4\0\0",
                                                   12);
// A disk of so many bytes with such a header and a fresh body.
inline std::string root_block_disk(char capability, size_t bytes = 2 << 20)
{
    std::string disk(bytes, '\0');
    disk.replace(kRootBlockHeaderAt, kHandHeader.size(), kHandHeader);
    disk[kRootBlockBodyAt + 103] = capability;
    return disk;
}
inline const std::string kHandBody("\x01\x02\x03\x04"                 // version
                                   "\0\0\0\1"                         // RAID
                                   "\x11\x12\x13\x14\x15\x16\x17\x18" // sizes: root, swap, gap
                                   "\x21\x22\x23\x24\x25\x26\x27\x28"
                                   "\x31\x32\x33\x34\x35\x36\x37\x38"
                                   "\x41\x42\x43\x44\x45\x46\x47\x48" // partition 1: start, size, type
                                   "\x51\x52\x53\x54\x55\x56\x57\x58"
                                   "\x61\x62\x63\x64"
                                   "\x71\x72\x73\x74\x75\x76\x77\x78" // partition 2
                                   "\x81\x82\x83\x84\x85\x86\x87\x88"
                                   "\x91\x92\x93\x94"
                                   "\xa1\xa2\xa3\xa4\xa5\xa6\xa7\xa8" // partition 3
                                   "\xb1\xb2\xb3\xb4\xb5\xb6\xb7\xb8"
                                   "\xc1\xc2\xc3\xc4"
                                   "\0\0\0\1"          // built-in storage
                                   "\xd1\xd2\xd3\xd4"  // extra version
                                   "\xe1\xe2\xe3\xe4", // capability
                                   104);
inline constexpr PartitionLayout kHandLayout = {
    .version = 0x01020304,
    .blRaidType = 1,
    .sysSize = 0x1112131415161718,
    .swapSize = 0x2122232425262728,
    .dataGap = 0x3132333435363738,
    .partition = {{0x4142434445464748, 0x5152535455565758, 0x61626364},
                  {0x7172737475767778, 0x8182838485868788, 0x91929394},
                  {0xa1a2a3a4a5a6a7a8, 0xb1b2b3b4b5b6b7b8, 0xc1c2c3c4}},
    .blBuildinStorage = 1,
};

// The order of the network ports: renames interfaces until their numbers follow the labels on the chassis.
#pragma once

#include "lib/list.h"

inline constexpr int kNetSeqMax = 32;

// An interface that gets a number.
struct NETDEVSEQ {
    char szName[32];    // as it is called now
    char szPciName[32]; // the device's place on the PCI bus
    int nExtSeq;        // position among the ports that are listed by hand, -1 for none
};

// The PCI ports whose devices go last, in the order of this file.
inline constexpr char kNetSeqPortsPath[] = "/etc.defaults/extensionNicSeq";
struct NetSeqPort {
    char szPciPort[32];
    NetSeqPort *next;
};
using PNETDEVSEQ = NetSeqPort *;

// Reads the number of each built-in port: the list is filled with `internal` texts, or as many as the model description
// says. Returns 0; -1, logged.
[[nodiscard]] int net_seq_numbers_read(int internal, PNLIBSZLIST *numbers);

// Reads the list of ports; an empty one when there is no such file. Returns 0; -1, logged.
[[nodiscard]] int net_seq_ports_read();
// The position of the first of these ports that a device lies below; -1 for none.
[[nodiscard]] int net_seq_port_of(const char *pci_name);

// Sorts the devices by their place and puts the numbers of those on extension cards among the numbers of the built-in
// ones. Returns 0; -1, logged, when there are not `internal` built-in devices.
[[nodiscard]] int net_seq_place(NETDEVSEQ *devices, int count, int internal, PNLIBSZLIST *numbers);

// Renames each device that has a number to the one at its position; where another device has it, the two swap.
//   spare  number of a name that is free
// A rename that fails is logged, and the next device follows.
void net_seq_rename(NETDEVSEQ *devices, int count, const NLIBSZLIST *numbers, int spare);

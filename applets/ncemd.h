// What the units of the event daemon share.
#pragma once

#include <cstdint>

enum NcemdDiskState : int32_t { kDiskNormal = 0, kDiskFault = 3, kDiskAbsent = 4 };

struct NcemdDisk {
    int32_t state;  // NcemdDiskState
    int32_t forced; // a fault that was reported and stays whatever the kernel shows
};

extern int gblDiskCount;
extern NcemdDisk *gblDiskState;   // one entry per disk
extern int32_t *gblDiskLastState; // the state last shown
extern int gblHwFd;               // the board, kept open to read the micro-controller; -1 when closed
extern int gblNetlinkFd;          // -1 when closed
extern int gblMuteBuzzer;         // the alarm was acknowledged
extern int gblButtonMode;         // the buttons are under test

// Waits up to one round for an event, also when the board cannot be asked. Results of NORVHWGetEvent.
[[nodiscard]] int ncemd_event_wait(int *event);

// Sends a control that carries no data.
int ncemd_control(int control);

// Makes the disk arrays, every disk absent and its LED off. ncemd_disks_free gives them back.
void ncemd_disks_init();
void ncemd_disks_free();
// Shows on the LEDs which disks are there.
void ncemd_disk_led_pass();
// Marks the disks whose port reports a fault.
void ncemd_port_thaw_scan();

// Reads one button code of the micro-controller and acts on it.
void ncemd_button_check();
// Serves the button test until its end event comes.
void ncemd_button_mode();

// Opens the socket that tells of link changes; without it the daemon goes on.
void ncemd_netlink_open();
// Takes what the socket holds, at most one message block, and follows links that came or went.
void ncemd_netlink_pass();

// Starts a power action in a child: NORVSysPowerAction(mode). Returns 0; -1 when there is no child.
int ncemd_power_action_start(int mode);

// Install the handlers. SIGTERM: 0 or -1, logged.
int ncemd_sigterm_init();
void ncemd_sigchld_init();
// Logs what the handlers met; they cannot do so themselves.
void ncemd_signals_report();

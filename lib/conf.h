// Probes of the model description kDefaultsPath. Unless a line says otherwise an answer is read once and stays for the
// life of the process.
#pragma once

// Whether the value of `key` is "yes" in any case. False for NULL, a missing key, a value of five bytes or more.
[[nodiscard]] bool NLIBCConfIsYes(const char *key); // not cached

[[nodiscard]] bool conf_support_install_only_dev();
[[nodiscard]] bool conf_support_led_behavior_v2();
[[nodiscard]] bool conf_supportsas();
[[nodiscard]] bool conf_blockm2sata();
[[nodiscard]] bool conf_support_m2_all_devices();
[[nodiscard]] bool conf_support_multipath();
[[nodiscard]] bool conf_supportnvme();
[[nodiscard]] bool conf_support_oob_ctl();
[[nodiscard]] bool conf_supportraid();
[[nodiscard]] bool conf_support_disk_intf_check();
[[nodiscard]] bool conf_supportuart2(); // exactly "yes"
[[nodiscard]] bool conf_ali_nos();      // exactly "yes"

[[nodiscard]] bool NLIBCConfIsVirtualPlatform();
[[nodiscard]] bool NLIBCConfIsHdSeries(); // not cached

// Number of disk bays; 0 when it cannot be read, and then the next call reads again.
[[nodiscard]] int NLIBCConfMaxDisksGet();
// Most disks a system array may have; the number of bays when the key is missing. Not cached.
[[nodiscard]] int NLIBCConfMaxSysRaidDisksGet();

// Whether two heads share the disks, 1 or 0. Remembered across processes in /tmp/.dualhead or /tmp/.not.dualhead.
[[nodiscard]] int NLIBCConfSupportDualHead();

// Whether the hardware version is "VirtualNOS", 1 or 0. Only a successful read is kept.
[[nodiscard]] int NLIBCConfIsVmmVnos();

// Sets one value of kConfPath with kConfFormat. Returns 0; -1 as NLIBCFileSetKeyValue, 0x0d00 on NULL.
[[nodiscard]] int NLIBCConfInfoSetKeyValue(const char *key, const char *value);

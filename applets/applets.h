// The roles of the executable. Each takes the process's arguments and returns its exit status; -1 reaches the shell
// as 255.
#pragma once

int manutild_main(int argc, char *argv[]);
int findhostd_main(int argc, char *argv[]);
int raidtool_main(int argc, char *argv[]);
int norvcfgen_main(int argc, char *argv[]);
int norvhdcfgen_main(int argc, char *argv[]);
int norvcheckpartition_main(int argc, char *argv[]);
int norvcleanpartition_main(int argc, char *argv[]);
int norvgetmaxpartition_main(int argc, char *argv[]);
int norvchecksum_main(int argc, char *argv[]);
int norvhwctrl_main(int argc, char *argv[]);
int mantool_main(int argc, char *argv[]);
int norv_microp_control_main(int argc, char *argv[]);
int norvdiskport_main(int argc, char *argv[]);
int norvdiskupdatehclport_main(int argc, char *argv[]);
int norvupgrade_main(int argc, char *argv[]);
int install_cgi_main(int argc, char *argv[]);
int lock_check_cgi_main(int argc, char *argv[]);
int recover_cgi_main(int argc, char *argv[]);
int start_telnet_cgi_main(int argc, char *argv[]);
int clean_button_flags_cgi_main(int argc, char *argv[]);
int session_cgi_main(int argc, char *argv[]);
int norvcodesign_main(int argc, char *argv[]);
int norvnetseqadj_main(int argc, char *argv[]);
int norvssdcache_main(int argc, char *argv[]);
int norvlanstatus_main(int argc, char *argv[]);
int norv_pstore_collect_main(int argc, char *argv[]);
int norv_swap_ctl_main(int argc, char *argv[]);
int norv_extract_system_patch_main(int argc, char *argv[]);
int norv_oob_power_action_main(int argc, char *argv[]);
int norv_oob_ipv4_get_main(int argc, char *argv[]);
int norvstgcore_main(int argc, char *argv[]);
int norv_led_mask_on_main(int argc, char *argv[]);

// The event daemon, under every name that is not in the table. `support_acm`: whether the board's micro-controller
// also listens on the ACM device.
int ncemd_main(int argc, char *argv[], bool support_acm);

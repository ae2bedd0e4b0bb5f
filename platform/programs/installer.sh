#!/bin/sh
# Prepares the disks for an install: partitions, arrays, file systems, swap.
#   usage: installer.sh [-r] [-d] [-m]
#   -r  makes the system partitions and arrays anew; without it they stand, and the system volume is only emptied
#   -d  makes the data volume too; what was on it is lost
#   -m  leaves the partitions as they are even with -r: their layout is foreign, and wanted
# Words that are empty are stepped over. Exit status 0 when the system volume has a new file system; each other status
# stands beside its message. mke2fs reports in /tmp/mkfs.progress.<name>.
PATH=/sbin:/bin:/usr/sbin:/usr/bin:/usr/norv/sbin:/usr/norv/bin

fail() { # STATUS MESSAGE
  echo "installer.sh: $2"
  exit "$1"
}

conf() { sed -n "s/^$1=\"\{0,1\}\([^\"]*\)\"\{0,1\}\$/\1/p" /etc.defaults/norvinfo.conf | head -n 1; }

make_file_system() { # DEVICE
  /sbin/mke2fs -F -t ext4 "$1" >"/tmp/mkfs.progress.${1##*/}" 2>&1 || fail 14 "no file system on $1"
}

stop_system() {
  norv_swap_ctl --stop || fail 10 "swap does not stop"
  for array in /dev/md0 /dev/md1; do # where the kernel finds arrays, that of the swap runs though nobody started swap
    [ ! -e $array ] || /sbin/mdadm -S $array || fail 11 "$array does not stop"
  done
}

# The layouts that are still written: start, system size, swap size, gap in front of the data partition.
layout() {
  case $(conf partition_curr_version) in
  7) echo 256 4980480 4194304 262144 ;;
  9) echo 8192 16777216 4194304 262144 ;;
  '' | 8) echo 2048 4980480 4194304 260352 ;;
  *) return 1 ;;
  esac
}

partition() { # NUMBER GAP SIZE TYPE
  /sbin/sfdisk -N"$1" -uS -q -f -j"$2" -z"$3" -t"$4" -F /dev/sda || fail 12 "no partition $1 on /dev/sda"
}

# A model with arrays: raidtool knows the disks.
make_arrays() {
  norvgetmaxpartition
  if [ $? -eq 1 ]; then # the platform with system disks of its own
    raidtool initsys-hdseries
  else
    raidtool initsys
  fi || fail 13 "no system arrays"
  [ -e /dev/md0 ] || fail 13 "no system arrays"
}
make_data_array() {
  raidtool destroy 2 || fail 15 "/dev/md2 stays"
  raidtool newvol || fail 15 "no data array"
}

# A model with one disk.
make_partitions() {
  if [ "$data" ]; then
    /sbin/sfdisk --fast-delete -1 /dev/sda
  else
    /sbin/sfdisk --fast-delete 1:2 /dev/sda
  fi || fail 12 "partitions of /dev/sda stay"
  /sbin/sfdisk -M1 /dev/sda || fail 12 "no label on /dev/sda"
  partition 1 "$1" "$2" 83
  partition 2 0 "$3" 82
}
make_data_partition() {
  /sbin/sfdisk --fast-delete 3:128 /dev/sda || fail 12 "partitions of /dev/sda stay"
  partition 3 "$4" -1 83
}

remake='' data='' keep=''
for word; do
  case $word in
  -r) remake=yes ;;
  -d) data=yes ;;
  -m) keep=yes ;;
  '') ;;
  *) fail 2 "usage: installer.sh [-r] [-d] [-m]" ;;
  esac
done
[ -z "$keep" ] || remake=''

if [ "$(conf supportraid)" = yes ]; then
  system=/dev/md0 data_volume=/dev/md2
  [ -z "$remake" ] || { stop_system && make_arrays; }
  [ -z "$data" ] || make_data_array
elif [ "$(conf ali_nos)" = yes ]; then # its partitions are made in the factory
  system=/dev/sda5 data_volume=/dev/sda3
else
  system=/dev/sda1 data_volume=/dev/sda3
  numbers=$(layout) || fail 16 "no layout of version $(conf partition_curr_version)"
  [ -z "$remake" ] || { stop_system && make_partitions $numbers; }
  [ -z "$data" ] || make_data_partition $numbers
fi
make_file_system $system
[ -z "$data" ] || make_file_system $data_volume
norv_swap_ctl --start || echo "installer.sh: goes on without swap"

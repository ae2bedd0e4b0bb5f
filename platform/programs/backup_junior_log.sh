#!/bin/sh
# Run before the machine goes down: takes the logs, which live in memory, to the system volume, where the installed
# system or the next boot finds them. Without a system volume there is nothing to do.
PATH=/sbin:/bin:/usr/sbin:/usr/bin

conf() { sed -n "s/^$1=\"\{0,1\}\([^\"]*\)\"\{0,1\}\$/\1/p" /etc.defaults/norvinfo.conf | head -n 1; }

if [ "$(conf supportraid)" = yes ]; then
  volume=/dev/md0
elif [ "$(conf ali_nos)" = yes ]; then
  volume=/dev/sda5
else
  volume=/dev/sda1
fi
[ -e "$volume" ] || exit 0

mount_point=$(mktemp -d /tmp/backup_log.XXXXXX) || exit 1
trap 'rmdir "$mount_point"' EXIT
mount "$volume" "$mount_point" || exit 1
status=0
if [ -d "$mount_point/var" ]; then # else the volume holds no system yet
  to=$mount_point/var/log/junior
  mkdir -p "$to" || status=1
  for log in /var/log/messages /var/log/*.log /tmp/installer_sh.log /tmp/update.progress; do
    [ ! -f "$log" ] || cp "$log" "$to/" || status=1
  done
fi
umount "$mount_point" || status=1
exit $status

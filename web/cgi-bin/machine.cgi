#!/bin/sh
# Tells the install page which machine this is, what its disks hold, and what an install would erase. Changes nothing.
export PATH=/sbin:/bin:/usr/sbin:/usr/bin:/usr/norv/sbin:/usr/norv/bin

conf() { sed -n "s/^$2=\"\{0,1\}\([^\"]*\)\"\{0,1\}\$/\1/p" "$1" 2>/dev/null | head -n 1; }

# A JSON string, without control characters and the blanks that fill up names.
text() { printf '"%s"' "$(printf %s "$1" | LC_ALL=C tr -d '\000-\037\177' | sed 's/ *$//; s/[\\"]/\\&/g')"; }

# The disks that an install takes: what they are, and whether all that is on them would go.
disks() {
  raid=$(conf /etc.defaults/norvinfo.conf supportraid)
  whole=" $(raidtool enumformatalldisks 2>/dev/null) "
  comma=''
  for name in $(norvdiskport -installable_disk_list 2>/dev/null); do
    place=$(norvdiskport -deviceinfo "$name" 2>/dev/null) || place=$name
    erased=false
    if [ "$raid" = yes ]; then
      case $whole in *" ${place##*[!0-9]} "* | ' all ') erased=true ;; esac
    elif [ "$name" = sda ] && [ "$status" = not_install ]; then
      erased=true
    fi
    sectors=$(cat "/sys/block/$name/size" 2>/dev/null)
    printf '%s{"name": %s, "place": %s, "product": %s, "bytes": %s, "erased": %s}' "$comma" "$(text "$name")" \
      "$(text "$place")" "$(text "$(cat "/sys/block/$name/device/model" 2>/dev/null)")" $((${sectors:-0} * 512)) $erased
    comma=', '
  done
}

addresses() {
  comma=''
  for address in $(ifconfig 2>/dev/null | sed -n 's/.*inet \(addr:\)\{0,1\}\([0-9.]*\).*/\2/p'); do
    [ "$address" = 127.0.0.1 ] || { printf '%s%s' "$comma" "$(text "$address")" && comma=', '; }
  done
}

# Two lookups at once would be in each other's way: both mount the disks' system at one place.
status=$(flock /run/norv-machine.lock norvupgrade --check-system 2>/dev/null)

printf 'Cache-Control: no-store\r\nContent-Type: application/json\r\n\r\n'
printf '{"host": %s, ' "$(text "$(hostname)")"
printf '"model": %s, ' "$(text "$(conf /etc.defaults/norvinfo.conf upnpmodelname)")"
printf '"version": %s, ' "$(text "$(conf /etc.defaults/VERSION productversion)")"
printf '"status": %s, ' "$(text "$status")"
printf '"found": %s, ' "$(text "$(cat /tmp/disk_sysinfo 2>/dev/null)")"
printf '"memory_test": %s, ' "$(text "$(head -n 1 /tmp/memtester.progress 2>/dev/null)")"
printf '"addresses": [%s], ' "$(addresses)"
case $status in
updating | mem_testing) printf '"disks": []}' ;; # they are busy
*) printf '"disks": [%s]}' "$(disks)" ;;
esac

#!/bin/sh
# Asks the update server which version it has for this machine, before anything is erased for it. The query is that of
# install.cgi: status and utctime.
export PATH=/sbin:/bin:/usr/sbin:/usr/bin:/usr/norv/sbin:/usr/norv/bin

case "&$QUERY_STRING&" in
*'&status=sys_migrat&'*) option=--check-migrate ;;
*'&status=sys_crash&'*) option=--check-reinstall ;;
*) option=--check ;;
esac
printf 'Cache-Control: no-store\r\nContent-Type: application/json\r\n\r\n'
answer=$(norvupgrade $option 2>/dev/null)
case $answer in
*'Download link: http'*) # without a link there is nothing to download
  version=$(printf '%s\n' "$answer" | LC_ALL=C sed -n 's/[\\"[:cntrl:]]//g; s/^Version: *//p')
  printf '{"success": true, "data": {"version": "%s"}}' "$version"
  ;;
*) printf '{"success": false}' ;;
esac

#!/bin/sh
# Restarts the machine, unless an install runs. The header field keeps pages of other servers from asking: a browser
# sends it only to where its page came from.
export PATH=/sbin:/bin:/usr/sbin:/usr/bin

printf 'Cache-Control: no-store\r\nContent-Type: application/json\r\n\r\n'
if [ "$REQUEST_METHOD" = POST ] && [ "$HTTP_X_INSTALL_PAGE" = 1 ] && flock -s -n /tmp/install.lock true; then
  printf '{"success": true}'
  (sleep 1 && reboot) >/dev/null 2>&1 </dev/null &
else
  printf '{"success": false}'
fi

#!/bin/sh
# Hands out /tmp/install.progress, which is a whole answer with its header. 204 when there is nothing in it: no install
# has begun, or it is being written.
answer=$(cat /tmp/install.progress 2>/dev/null)
if [ -n "$answer" ]; then
  printf %s "$answer"
else
  printf 'Status: 204 No Content\r\nCache-Control: no-store\r\n\r\n'
fi

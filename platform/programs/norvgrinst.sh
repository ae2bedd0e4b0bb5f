#!/bin/sh
# Run when a client on the LAN asks for the product's own installation script. There is none here, so it only leaves a
# line in the log.
logger -p daemon.notice -t norvgrinst "installation by script was asked for; this image has none"

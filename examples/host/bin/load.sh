#!/bin/sh
# One line: load over 1, 5 and 15 minutes|running|threads|seconds since the boot
read -r one five fifteen tasks _ < /proc/loadavg
read -r uptime _ < /proc/uptime
echo "$one|$five|$fifteen|${tasks%/*}|${tasks#*/}|${uptime%.*}"

#!/bin/sh
# The largest files below a directory, one line each, the largest first: size in bytes, a blank, path.
# usage: largest_files.sh DIRECTORY COUNT
# Ends with 3 for what is no directory and with 4 for a count that is no number of at least 1.
[ -d "$1" ] || exit 3
case $2 in '' | *[!0-9]* | 0) exit 4 ;; esac
find "$1" -xdev -type f -printf '%s %p\n' 2>/dev/null | sort -rn | head -n "$2"
exit 0

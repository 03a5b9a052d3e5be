#!/bin/sh
# The fifty largest installed packages: name|version|installed KB|summary
dpkg-query -W -f '${db:Status-Abbrev}|${binary:Package}|${Version}|${Installed-Size}|${binary:Summary}\n' 2>/dev/null |
awk -F '|' '$1 ~ /^ii/ { printf "%s|%s|%d|%s\n", $2, $3, $4, $5 }' |
sort -t '|' -k 3,3nr | head -n 50

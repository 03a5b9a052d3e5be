#!/bin/sh
# One line for each mounted file system that has blocks of its own:
# mount point|device|type|size KB|used KB|available KB|used %|inodes|inodes used %
# Device and mount point stand at the ends of df's lines, so both may hold blanks; a '|' in them is shown as '?'.
LC_ALL=C df -l --output=source,fstype,size,used,avail,pcent,itotal,ipcent,target 2>/dev/null |
awk 'NR > 1 && match($0, / +[^ ]+ +[0-9]+ +[0-9]+ +[0-9]+ +[0-9-]+%? +[0-9-]+ +[0-9-]+%? /) {
    source = substr($0, 1, RSTART - 1); target = substr($0, RSTART + RLENGTH)
    split(substr($0, RSTART, RLENGTH), f, " ")     # type, size, used, available, used %, inodes, inodes used %
    if (f[2] == 0) next
    gsub(/\|/, "?", source); gsub(/\|/, "?", target)
    for (i = 5; i <= 7; i++) gsub(/[%-]/, "", f[i])
    printf "%s|%s|%s|%s|%s|%s|%s|%s|%s\n", target, source, f[1], f[2], f[3], f[4], f[5], f[6], f[7]
}'

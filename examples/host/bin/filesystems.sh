#!/bin/sh
# One line for each mounted file system that has blocks of its own:
# mount point|device|type|size KB|used KB|available KB|used %|inodes|inodes used %
LC_ALL=C df -l --output=target,source,fstype,size,used,avail,pcent,itotal,ipcent 2>/dev/null |
awk 'NR > 1 && NF >= 9 {
    n = NF
    ipcent = $n; itotal = $(n-1); pcent = $(n-2); avail = $(n-3); used = $(n-4); size = $(n-5); type = $(n-6)
    if (size == 0) next
    source = $(n-7)
    target = $1
    for (i = 2; i <= n - 8; i++) target = target " " $i     # a mount point may hold blanks
    gsub(/[%-]/, "", pcent); gsub(/[%-]/, "", ipcent); gsub(/-/, "", itotal)
    printf "%s|%s|%s|%s|%s|%s|%s|%s|%s\n", target, source, type, size, used, avail, pcent, itotal, ipcent
}'

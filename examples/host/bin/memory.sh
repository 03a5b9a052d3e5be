#!/bin/sh
# One line: total|available|free|cached|buffers|swap total|swap free (KB)|available percent
awk '{ kb[$1] = $2 }
END {
    total = kb["MemTotal:"]; available = kb["MemAvailable:"]
    printf "%d|%d|%d|%d|%d|%d|%d|%.2f\n", total, available, kb["MemFree:"], kb["Cached:"], kb["Buffers:"],
        kb["SwapTotal:"], kb["SwapFree:"], (total > 0 ? available * 100 / total : 0)
}' /proc/meminfo

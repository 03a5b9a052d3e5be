#!/bin/sh
# One line for each protocol and state: protocol|state|sockets
for protocol in tcp tcp6 udp udp6; do
    [ -r "/proc/net/$protocol" ] || continue
    awk -v protocol="$protocol" '
        BEGIN { split("ESTABLISHED SYN_SENT SYN_RECV FIN_WAIT1 FIN_WAIT2 TIME_WAIT CLOSE CLOSE_WAIT LAST_ACK LISTEN CLOSING", name, " ")
                for (i = 1; i <= 11; i++) state[sprintf("%02X", i)] = name[i] }
        FNR > 1 { count[$4]++ }
        END { for (s in count) printf "%s|%s|%d\n", protocol, (s in state) ? state[s] : s, count[s] }' "/proc/net/$protocol"
done

#!/bin/sh
# One line for each interface:
# name|state|MTU|received bytes|packets|errors|sent bytes|packets|errors|hardware address|received bytes|sent bytes
# The bytes stand twice: once as totals, and once for the rates that the agent makes of them.
# An interface that goes away while it is read has no line.
exec 2>/dev/null
for path in /sys/class/net/*; do
    read -r word < "$path/operstate" || continue
    state=0
    case $word in
        up) state=6 ;;
        down) state=2 ;;
        unknown) read -r flags < "$path/flags" && [ $((flags & 1)) -eq 1 ] && state=6 ;;   # loopback tells no state
    esac
    line="${path##*/}|$state"
    for file in mtu statistics/rx_bytes statistics/rx_packets statistics/rx_errors \
                statistics/tx_bytes statistics/tx_packets statistics/tx_errors; do
        read -r value < "$path/$file" || continue 2
        line="$line|$value"
    done
    address=
    read -r address < "$path/address"     # empty where an interface has none
    read -r received < "$path/statistics/rx_bytes" && read -r sent < "$path/statistics/tx_bytes" || continue
    echo "$line|$address|$received|$sent"
done

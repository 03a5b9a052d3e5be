#!/bin/sh
# One line for each interface:
# name|state|MTU|received bytes|packets|errors|sent bytes|packets|errors|hardware address
for path in /sys/class/net/*; do
    [ -r "$path/statistics/rx_bytes" ] || continue
    state=0
    read -r word < "$path/operstate"
    case $word in
        up) state=6 ;;
        down) state=2 ;;
        unknown) read -r flags < "$path/flags"; [ $((flags & 1)) -eq 1 ] && state=6 ;;   # loopback tells no state
    esac
    line="${path##*/}|$state"
    for file in mtu statistics/rx_bytes statistics/rx_packets statistics/rx_errors \
                statistics/tx_bytes statistics/tx_packets statistics/tx_errors address; do
        value=
        read -r value < "$path/$file"
        line="$line|$value"
    done
    echo "$line"
done

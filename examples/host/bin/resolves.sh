#!/bin/sh
# Whether this machine resolves names: 0 yes, 2 the name is not known, anything else no.
# usage: resolves.sh NAME
getent hosts "$1" >/dev/null

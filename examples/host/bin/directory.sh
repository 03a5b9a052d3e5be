#!/bin/sh
# One line about the directory that DIRECTORY names:
# directory|entries|files|size of the files directly in it in bytes|seconds since the newest change of an entry|entries
# A directory that cannot be read has no line and a message.
[ -r "$DIRECTORY" ] && [ -d "$DIRECTORY" ] || { echo "cannot read the directory '$DIRECTORY'" >&2; exit 1; }
now=$(date +%s)
find "$DIRECTORY" -mindepth 1 -maxdepth 1 -printf '%y %s %T@\n' 2>/dev/null | awk -v directory="$DIRECTORY" -v now="$now" '
    { entries++; if ($1 == "f") { files++; bytes += $2 } if (int($3) > newest) newest = int($3) }
    END { printf "%s|%d|%d|%.0f|%d|%d\n", directory, entries, files, bytes, entries ? (now > newest ? now - newest : 0) : 0, entries }'

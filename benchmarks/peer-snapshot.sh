#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The shell's own backup of FILE into FOLDER, and what puts it on the disk: peer-snapshot.sh FILE FOLDER
set -e
sqlite3 -batch -init /dev/null "$1" ".backup '$2/peer-snapshot.sqlite'"
sync "$2/peer-snapshot.sqlite"
echo "$(stat -c %s "$2/peer-snapshot.sqlite") bytes"
rm "$2/peer-snapshot.sqlite"

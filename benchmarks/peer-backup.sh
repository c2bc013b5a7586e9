#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The shell's own backup of FILE into FOLDER: peer-backup.sh FILE FOLDER
set -e
sqlite3 -batch -init /dev/null "$1" ".backup '$2/peer-backup.sqlite'"
echo "$(stat -c %s "$2/peer-backup.sqlite") bytes"
rm "$2/peer-backup.sqlite"

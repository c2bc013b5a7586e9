#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The shell's own export of the table records: peer-export.sh csv|json|sql FILE OUTPUT
set -e
case $1 in
  csv) set -- "$2" "$3" ".headers on" ".mode csv" "SELECT * FROM records" ;;
  json) set -- "$2" "$3" ".headers on" ".mode json" "SELECT * FROM records" ;;
  sql) set -- "$2" "$3" "" "" ".dump records" ;;
esac
sqlite3 -batch -readonly -init /dev/null "$1" ".output '$2'" "$3" "$4" "$5"
echo "$(stat -c %s "$2") bytes"

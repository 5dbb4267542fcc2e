#!/usr/bin/env bash
# Puts the names of the selection on the clipboard, one a line.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

[ $# -gt 0 ] || fail "No file was selected."
text=
for path; do
  absolute "$path"
  name_of "$REPLY"
  text+=${REPLY:-/}$'\n'
done
copy_to_clipboard "${text%$'\n'}"

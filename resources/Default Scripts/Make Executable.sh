#!/usr/bin/env bash
# Lets the selected files be run as programs.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

select_items "$@"
files=()
for path in "${selection[@]}"; do
  quoted "$path"
  if [[ -f $path ]]; then
    files+=("$path")
  elif [[ -L $path && ! -e $path ]]; then
    problem "$REPLY is a link that leads nowhere."
  else
    problem "$REPLY is not a file."
  fi
done
[ ${#files[@]} -gt 0 ] || finish
# All at once, and again one by one only for what has to be told.
if ! chmod +x -- "${files[@]}" 2>/dev/null; then
  for path in "${files[@]}"; do
    if ! try chmod +x -- "$path"; then
      quoted "$path"
      problem "$REPLY was not made executable: $reason."
    fi
  done
  finish
fi
for path in "${files[@]}"; do
  if [[ ! -x $path ]]; then
    quoted "$path"
    problem "$REPLY was not made executable: its disk does not allow programs."
  fi
done
finish

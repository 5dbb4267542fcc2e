#!/usr/bin/env bash
# Makes a copy of each selected item beside it, with the next free name.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

select_items "$@"
for path in "${selection[@]}"; do
  name_of "$path"
  name=$REPLY
  folder_of "$path"
  folder=$REPLY
  stage "$folder" || continue
  if ! run cp --archive --no-target-directory -- "$path" "$staging/copy"; then
    complaint cp
    reason=$REPLY
    quoted "$path"
    problem "$REPLY was not duplicated: $reason."
    discard "$staging/copy"
  elif ! place "$staging/copy" "$folder" "$name"; then
    quoted "$path"
    problem "$REPLY was not duplicated: $reason."
    discard "$staging/copy"
  fi
done
finish

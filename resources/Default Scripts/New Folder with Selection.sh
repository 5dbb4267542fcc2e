#!/usr/bin/env bash
# Makes a folder beside the first selected item and moves the selection into it.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

new_folder=
moved_from=()
moved_to=()

undo() {
  local at
  [[ -n $new_folder ]] || return 0
  for ((at = ${#moved_from[@]} - 1; at >= 0; at--)); do
    exists "${moved_from[at]}" || ! exists "${moved_to[at]}" ||
      move_to "${moved_to[at]}" "${moved_from[at]}" || true
  done
  rmdir -- "$new_folder" 2>/dev/null || true
}

select_items "$@"
folder_of "${selection[0]}"
parent=$REPLY
disk=$(stat --format=%d -- "$parent/.")
disks=$(stat --format=%d -- "${selection[@]}" 2>/dev/null) ||
  fail "Some of the files have just gone; nothing was moved."
mapfile -t disks <<<"$disks"

hold
if ! create "$parent" "New Folder" mkdir --; then
  quoted "$parent"
  fail "No folder can be made in $REPLY: $reason."
fi
new_folder=$REPLY
release

# All at once what cannot meet another of the same name.
declare -A names=()
rest=()
for at in "${!selection[@]}"; do
  name_of "${selection[at]}"
  if [ "${disks[at]}" != "$disk" ]; then
    quoted "${selection[at]}"
    problem "$REPLY is on another disk and stays there."
  elif [[ -n ${names[$REPLY]-} ]]; then
    rest+=("${selection[at]}")
  else
    names[$REPLY]=taken
    moved_from+=("${selection[at]}")
    moved_to+=("$new_folder/$REPLY")
  fi
done
run mv --no-clobber --target-directory="$new_folder" -- "${moved_from[@]}" || true
for path in "${moved_from[@]}"; do
  if exists "$path"; then rest+=("$path"); fi
done

for path in "${rest[@]}"; do
  name_of "$path"
  hold
  if place "$path" "$new_folder" "$REPLY"; then
    moved_from+=("$path")
    moved_to+=("$REPLY")
  else
    quoted "$path"
    problem "$REPLY was not moved: $reason."
  fi
  release
done
# What could not be filled goes; what was moved stays.
moved_from=()
finish

#!/usr/bin/env bash
# Gives each selected item its name in lower case. A name that is taken gets a number.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

# While a name changes on a disk that does not tell upper and lower case apart.
between_from=
between_to=

undo() {
  [[ -z $between_to ]] || ! exists "$between_to" ||
    move_to "$between_to" "$between_from" || true
}

# lower_case NAME: REPLY; bytes that are no character stay.
lower_case() {
  local rest=$1 lower='' run
  while [[ -n $rest ]]; do
    if [[ $rest =~ $utf8_run ]]; then
      run=${BASH_REMATCH[0]}
      rest=${rest:${#run}}
      lower_case_characters "$run"
      lower+=$REPLY
    else
      lower+=${rest:0:1}
      rest=${rest:1}
    fi
  done
  REPLY=$lower
}

lower_case_characters() {
  local LC_ALL=C.UTF-8
  REPLY=${1,,}
}

# is_listed FOLDER NAME: the folder has an entry of exactly this spelling.
is_listed() (
  shopt -s dotglob nullglob
  for entry in "${1%/}"/*; do
    [[ ${entry##*/} != "$2" ]] || exit 0
  done
  exit 1
)

rename_item() {
  local path=$1 name folder lower
  name_of "$path"
  name=$REPLY
  folder_of "$path"
  folder=$REPLY
  lower_case "$name"
  lower=$REPLY
  [ "$lower" != "$name" ] || return 0
  if [[ $path -ef ${folder%/}/$lower ]] && ! is_listed "$folder" "$lower"; then
    # The same entry under both spellings: it has to step aside to change its own.
    between_from=$path
    between_to=${folder%/}/.tervano-$$-$SRANDOM
    move_to "$path" "$between_to" || return 1
    path=$between_to
  fi
  place "$path" "$folder" "$lower" || return 1
  between_to=
}

select_items "$@"
folders=()
for path in "${selection[@]}"; do
  if [[ -d $path && ! -L $path ]]; then
    folders+=("$path")
  elif ! rename_item "$path"; then
    quoted "$path"
    problem "$REPLY was not renamed: $reason."
  fi
done
# What lies deeper comes first: its path goes with the name of a folder above.
while [ ${#folders[@]} -gt 0 ]; do
  longest=0
  for at in "${!folders[@]}"; do
    [ ${#folders[at]} -le ${#folders[longest]} ] || longest=$at
  done
  if ! rename_item "${folders[longest]}"; then
    quoted "${folders[longest]}"
    problem "$REPLY was not renamed: $reason."
  fi
  unset 'folders[longest]'
  folders=("${folders[@]}")
done
finish

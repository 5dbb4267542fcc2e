#!/usr/bin/env bash
# Writes the SHA-256 checksums of the selected files, and of all files in the selected folders, to a
# new file beside the first, such that "sha256sum --check" verifies it there.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

select_items "$@"
# A list with gaps would be taken for a whole one.
[ ${#problems[@]} -eq 0 ] || finish
folder_of "${selection[0]}"
folder=$REPLY
stage "$folder" || finish
for path in "${selection[@]}"; do
  if [[ ! -f $path && ! -d $path ]]; then
    quoted "$path"
    fail "$REPLY is neither a file nor a folder; no checksums were written."
  fi
  # Beside the list the name is enough.
  folder_of "$path"
  [ "$REPLY" != "$folder" ] || path=./${path##*/}
  if [[ -d $path ]]; then path=$path/; fi
  printf '%s\0' "$path"
done >"$staging/selected"

fail_to_read() {
  complaint "$1"
  fail "No checksums were written: $REPLY."
}

run env --chdir="$folder" find -H -files0-from "$staging/selected" \
  -name "${staging##*/}" -prune -o -type f -print0 >"$staging/found" ||
  fail_to_read find
run env LC_ALL=C sort --zero-terminated --unique --output="$staging/sorted" -- "$staging/found" ||
  fail_to_read sort
mapfile -d '' -t files <"$staging/sorted"
[ ${#files[@]} -gt 0 ] || fail "There is no file in the selection."
for path in "${files[@]}"; do
  # The name "-" alone would mean the standard input.
  [ "$path" = ./- ] || path=${path#./}
  printf '%s\0' "$path"
done >"$staging/files"
run env --chdir="$folder" xargs --null --arg-file="$staging/files" sha256sum -- \
  >"$staging/sums" || fail_to_read sha256sum
place "$staging/sums" "$folder" SHA256SUMS || fail "No checksums were written: $reason."
finish

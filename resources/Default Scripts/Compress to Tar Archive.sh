#!/usr/bin/env bash
# Packs the selection into a new .tgz file beside the first, with its permissions and links.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

select_items "$@"
# An archive with gaps would be taken for a whole one.
[ ${#problems[@]} -eq 0 ] || finish
folder_of "${selection[0]}"
folder=$REPLY

# Names in the archive begin below the deepest folder that holds the whole selection.
base=$folder
for path in "${selection[@]}"; do
  folder_of "$path"
  while [[ $base != / && $REPLY/ != "$base"/* ]]; do
    base=${base%/*}
    base=${base:-/}
  done
done

if [ ${#selection[@]} -eq 1 ]; then
  name_of "${selection[0]}"
  name=$REPLY
  # A folder's name is kept whole.
  if [[ ! -d ${selection[0]} || -L ${selection[0]} ]]; then
    split_name "$name"
    name=$stem
  fi
else
  name=Archive
fi

stage "$folder" || finish
for path in "${selection[@]}"; do
  printf './%s\0' "${path#"${base%/}"/}"
done >"$staging/selected"
if ! run tar --create --gzip --force-local --file="$staging/archive" \
  --directory="$base" --exclude="${staging##*/}" --null --no-unquote --verbatim-files-from \
  --files-from="$staging/selected"; then
  complaint tar
  fail "No archive was made: $REPLY."
fi
place "$staging/archive" "$folder" "$name.tgz" || fail "No archive was made: $reason."
finish

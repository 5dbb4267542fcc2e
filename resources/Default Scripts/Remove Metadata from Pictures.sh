#!/usr/bin/env bash
# Makes a copy of each selected picture without what it tells about you: place, time, camera, texts
# and previews. How it is turned and its colours stay.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

# The kinds of which a copy without metadata is still the whole picture.
readonly kinds='^image/(jpeg|png|webp|gif|tiff|heic|heif|avif)$'

is_picture_name() {
  [[ -f $1 && ${1,,} == *.@(jpg|jpeg|jpe|jfif|png|webp|gif|tif|tiff|heic|heif|avif) ]]
}

# clean_pictures FOLDER PICTURE...: for pictures of one folder.
clean_pictures() {
  local folder=$1 at name
  local reasons=()
  shift
  stage "$folder" || return 0
  mkdir -- "$staging/in" "$staging/out"
  # Under numbers for names: a name may look like an option or hold a line end.
  at=0
  for path; do
    at=$((at + 1))
    reasons[at]="it is not a picture of a known kind"
    is_picture_name "$path" || continue
    if run cp --dereference --no-preserve=all -- "$path" "$staging/in/$at"; then
      printf 'in/%s\n' $at
    else
      complaint cp
      reasons[at]=$REPLY
    fi
  done >"$staging/list"
  run env --chdir="$staging" exiftool -quiet -quiet -if "\$MIMEType =~ m{$kinds}" \
    -all= --icc_profile:all -CommonIFD0= -tagsFromFile @ -Orientation -ColorSpaceTags \
    -o out/ -@ list >/dev/null || true
  at=0
  for path; do
    at=$((at + 1))
    name_of "$path"
    split_name "$REPLY"
    fit_name "$stem" " without metadata$suffix"
    name=$REPLY
    reason=${reasons[at]}
    if [ ! -s "$staging/out/$at" ] || ! place "$staging/out/$at" "$folder" "$name"; then
      quoted "$path"
      problem "No copy of $REPLY without metadata was made: $reason."
    fi
  done
  unstage
}

need exiftool libimage-exiftool-perl
select_items "$@"
while [ ${#selection[@]} -gt 0 ]; do
  folder_of "${selection[0]}"
  folder=$REPLY
  here=()
  elsewhere=()
  for path in "${selection[@]}"; do
    folder_of "$path"
    if [ "$REPLY" = "$folder" ]; then here+=("$path"); else elsewhere+=("$path"); fi
  done
  clean_pictures "$folder" "${here[@]}"
  selection=("${elsewhere[@]}")
done
finish

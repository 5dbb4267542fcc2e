#!/usr/bin/env bash
# Compares files with the selected lists of checksums: SHA256SUMS, *.md5 and the like.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

# tool_for LIST: `tool` is the program that wrote such a list.
tool_for() {
  local line
  tool=
  head --bytes=65536 -- "$1" >"$staging/head"
  while IFS= read -r line || [[ -n $line ]]; do
    if [[ $line =~ ^(MD5|SHA1|SHA224|SHA256|SHA384|SHA512)' (' ]]; then
      tool=${BASH_REMATCH[1],,}sum
    elif [[ $line =~ ^\\?([0-9a-fA-F]+)' ' ]]; then
      case ${#BASH_REMATCH[1]} in
        32) tool=md5sum ;;
        40) tool=sha1sum ;;
        56) tool=sha224sum ;;
        64) tool=sha256sum ;;
        96) tool=sha384sum ;;
        128) tool=sha512sum ;;
      esac
    fi
    [[ -z $tool ]] || return 0
  done <"$staging/head"
  return 1
}

select_items "$@"
stage "${TMPDIR:-/tmp}" || finish
right=0
for path in "${selection[@]}"; do
  quoted "$path"
  list=$REPLY
  if [[ ! -f $path || ! -r $path ]]; then
    problem "$list is not a file that can be read."
    continue
  elif ! tool_for "$path"; then
    problem "$list is not a list of checksums."
    continue
  fi
  folder_of "$path"
  # A line for each file, whatever its name.
  run env --chdir="$REPLY" "$tool" --check -- "./${path##*/}" >"$staging/results" ||
    true
  good=0
  bad=0
  first=
  while IFS= read -r line; do
    if [[ $line == *": OK" ]]; then
      good=$((good + 1))
    else
      bad=$((bad + 1))
      first=${first:-$line}
    fi
  done <"$staging/results"
  right=$((right + good))
  if [ $bad -gt 0 ]; then
    displayable "${first%: FAILED*}"
    first=$REPLY
    counted $((good + bad)) "file" "files"
    problem "$bad of $REPLY in $list are damaged or missing, the first is \"$first\"."
  elif [ $good -eq 0 ]; then
    complaint "$tool"
    problem "$list was not verified: $REPLY."
  fi
done
if [ ${#problems[@]} -eq 0 ]; then
  counted $right "file is" "files are"
  tell "$REPLY as recorded."
fi
finish

#!/usr/bin/env bash
# Tells how much room the selection takes on the disk, folders with all that is in them.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

# readable BYTES: REPLY is such as "1.2 GB".
readable() {
  local units=(kB MB GB TB PB EB) unit=-1 tenths=$(($1 * 10))
  if [ "$1" -lt 1000 ]; then
    counted "$1" byte bytes
    return
  fi
  while [ "$tenths" -ge 9995 ]; do
    tenths=$(((tenths + 500) / 1000))
    unit=$((unit + 1))
  done
  REPLY="$((tenths / 10)).$((tenths % 10)) ${units[unit]}"
}

select_paths "$@"
stage "${TMPDIR:-/tmp}" || finish
printf '%s\0' "${selection[@]}" >"$staging/selected"
partly=
run du --summarize --total --block-size=1 --null --files0-from="$staging/selected" \
  >"$staging/sizes" || partly="at least "
run find -files0-from "$staging/selected" ! -type d -printf x >"$staging/found" ||
  partly="at least "
mapfile -d '' -t sizes <"$staging/sizes"
[ ${#sizes[@]} -gt 0 ] || fail "The disk usage cannot be found out."
size=${sizes[-1]%%$'\t'*}
files=$(stat --format=%s -- "$staging/found")
free=$(df --output=avail --block-size=1 -- "${selection[0]}" 2>/dev/null | tail --lines=1) || free=

if [ ${#selection[@]} -eq 1 ]; then
  quoted "${selection[0]}"
  sentence="$REPLY takes"
else
  sentence="${#selection[@]} items take"
fi
readable "$size"
sentence+=" $partly$REPLY"
counted "$files" file files
sentence+=" in $REPLY"
if [[ $free =~ [0-9]+ ]]; then
  readable "${BASH_REMATCH[0]}"
  sentence+="; $REPLY are free"
fi
tell "$sentence."
finish

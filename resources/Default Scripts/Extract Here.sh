#!/usr/bin/env bash
# Unpacks each selected archive beside it: a single thing at its top as it is, more of them in a
# folder of the archive's name. Nothing lands outside, nothing is replaced, and an archive that
# cannot be unpacked whole leaves nothing.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

# plain_name NAME: REPLY is the name without the endings of an archive.
plain_name() {
  local lower=${1,,}
  REPLY=$1
  case $lower in
    ?*.tar.gz | ?*.tar.xz | ?*.tar.lz) REPLY=${1:0:-7} ;;
    ?*.tar.bz2 | ?*.tar.zst | ?*.tar.lz4) REPLY=${1:0:-8} ;;
    ?*.tar.lzma) REPLY=${1:0:-9} ;;
    ?*.tar.z) REPLY=${1:0:-6} ;;
    *)
      split_name "$1"
      REPLY=$stem
      ;;
  esac
}

# is_compressed_file NAME: a single file rather than an archive.
is_compressed_file() {
  [[ ${1,,} == ?*.@(gz|bz2|xz|zst|lz4|lz|lzma|z) && ${1,,} != *.tar.* ]]
}

# is_protected PATH: after the program has failed.
is_protected() {
  local line head
  while IFS= read -r line; do
    case ${line,,} in *passphrase* | *encrypt* | *crypto*) return 0 ;; esac
  done <"$errors"
  # A zip file's old kind of protection takes one wrong password in 256 for right, and finds damage:
  # the lowest bit of the seventh byte tells.
  head=$(od --address-radix=n --format=x1 --read-bytes=7 -- "$1" 2>/dev/null) || return 1
  [[ $head == " 50 4b 03 04 "*[13579bdf] ]]
}

# is_text PATH: it holds no zero byte near its beginning, even when it is uncompressed. Lists of
# files are such texts, and bsdtar would fill them with files of this machine.
is_text() {
  local zeros head
  zeros=$(bsdcat -- "$1" 2>/dev/null | head --bytes=4096 |
    tr --delete --complement '\0' | wc --bytes) || true
  IFS= read -r -n 7 head <"$1" || true
  [[ $zeros -eq 0 && $head != "!<arch>" && $head != WARC/* ]]
}

# unpack PATH: fills "$staging/content"; else `reason` tells why it cannot be had.
unpack() {
  local name
  name_of "$1"
  name=$REPLY
  mkdir -- "$staging/content"
  if is_text "$1"; then
    reason="it is not an archive"
    is_compressed_file "$name" || return 1
  # Owners and special permissions are those of a stranger's machine. With a password, if only a
  # wrong one, none is asked for.
  elif run bsdtar --extract --no-same-owner --no-same-permissions --passphrase - \
    --directory "$staging/content" --file "$1" >/dev/null; then
    return 0
  elif is_protected "$1"; then
    reason="it is protected by a password"
    return 1
  elif ! is_compressed_file "$name" || [[ $(<"$errors") != *"Unrecognized archive format"* ]]; then
    complaint bsdtar
    reason=$REPLY
    return 1
  fi
  plain_name "$name"
  discard "$staging/content"
  mkdir -- "$staging/content"
  run bsdcat -- "$1" >"$staging/content/$REPLY" && return 0
  complaint bsdcat
  reason=$REPLY
  return 1
}

extract() {
  local path=$1 folder entries target
  folder_of "$path"
  folder=$REPLY
  unpack "$path" || return 1
  entries=("$staging/content"/*)
  case ${#entries[@]} in
    0)
      reason="it is empty"
      return 1
      ;;
    1)
      name_of "${entries[0]}"
      place "${entries[0]}" "$folder" "$REPLY"
      ;;
    *)
      name_of "$path"
      plain_name "$REPLY"
      target=$REPLY
      place "$staging/content" "$folder" "$target"
      ;;
  esac
}

shopt -s dotglob nullglob
need bsdtar libarchive-tools
select_items "$@"
for path in "${selection[@]}"; do
  if [[ ! -f $path || ! -r $path ]]; then
    quoted "$path"
    problem "$REPLY is not a file that can be read."
    continue
  fi
  folder_of "$path"
  stage "$REPLY" || continue
  if ! extract "$path"; then
    quoted "$path"
    problem "$REPLY was not extracted: $reason."
  fi
  unstage
done
finish

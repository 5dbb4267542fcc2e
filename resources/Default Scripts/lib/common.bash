# What the default scripts share. Each of them is run as "/bin/bash SCRIPT PATH..." and sources this
# file from the folder "lib" beside itself.
#
# File names are bytes: strings are taken apart in the C locale, and functions answer in REPLY, since
# $(...) drops the line ends of a name.
#
# The script's output goes to a log that few people read, so whatever they must know is also shown
# as a desktop notification. A success that can be seen on the screen is silent.
set -euo pipefail
shopt -u patsub_replacement 2>/dev/null || true

# The user's LC_ALL, which no longer is in the environment.
# shellcheck disable=SC2034 # for what the scripts start
users_locale=${LC_ALL-}
unset LC_ALL
LC_ALL=C

title=${0##*/}
title=${title%.sh}
problems=()
selection=()
stagings=()
staging=
errors=/dev/null
ended=
last_child=
reason=

# The longest run of well-formed UTF-8 at the beginning of a string.
readonly utf8_run=$'^([\x01-\x7f]|[\xc2-\xdf][\x80-\xbf]|\xe0[\xa0-\xbf][\x80-\xbf]|\xed[\x80-\x9f][\x80-\xbf]|[\xe1-\xec\xee\xef][\x80-\xbf]{2}|\xf0[\x90-\xbf][\x80-\xbf]{2}|[\xf1-\xf3][\x80-\xbf]{3}|\xf4[\x80-\x8f][\x80-\xbf]{2})+'

# --- What the user is told -----------------------------------------------------------------------

# displayable TEXT: REPLY is the text as one line of valid UTF-8.
displayable() {
  local rest=$1 text=
  while [[ -n $rest ]]; do
    if [[ $rest =~ $utf8_run ]]; then
      text+=${BASH_REMATCH[0]}
      rest=${rest:${#BASH_REMATCH[0]}}
    else
      text+=$'\xef\xbf\xbd'
      rest=${rest:1}
    fi
  done
  REPLY=${text//[[:cntrl:]]/$'\xef\xbf\xbd'}
}

# quoted PATH: REPLY is the name in quotation marks, for a sentence.
quoted() {
  name_of "$1"
  displayable "${REPLY:-/}"
  REPLY="\"$REPLY\""
}

# counted NUMBER SINGULAR PLURAL: REPLY is such as "1 file".
counted() {
  REPLY="$1 $3"
  [ "$1" -ne 1 ] || REPLY="$1 $2"
}

notify() {
  local text=${1//&/&amp;}
  text=${text//</&lt;}
  text=${text//>/&gt;}
  command -v notify-send >/dev/null || return 0
  # A bus without a notification daemon must not hold the script up.
  timeout 10 notify-send --app-name=Tervano --icon=tervano \
    --hint=string:desktop-entry:com.vessok.tervano -- Tervano "$text" >/dev/null 2>&1 || true
}

# tell SENTENCE: a result that the user waits for.
tell() {
  printf '%s: %s\n' "$title" "$1"
  notify "$title: $1"
}

# problem SENTENCE: something that went wrong while the rest goes on.
problem() {
  printf '%s: %s\n' "$title" "$1" >&2
  problems+=("$1")
}

# finish: ends the script, with a notification and status 1 when there were problems.
finish() {
  local count=${#problems[@]}
  ended=yes
  [ "$count" -gt 0 ] || exit 0
  if [ "$count" -eq 1 ]; then
    notify "$title: ${problems[0]}"
  else
    counted $((count - 1)) "more problem" "more problems"
    notify "$title: ${problems[0]} (And $REPLY.)"
  fi
  exit 1
}

# fail SENTENCE: the end.
fail() {
  problem "$1"
  finish
}

# need PROGRAM PACKAGE: the script cannot go on without the program.
need() {
  command -v -- "$1" >/dev/null ||
    fail "The program \"$1\" is missing; install the Debian package \"$2\"."
}

# --- Names ---------------------------------------------------------------------------------------

# name_of PATH: REPLY is the last component, empty for "/".
name_of() { REPLY=${1##*/}; }

# folder_of PATH: REPLY is the folder that contains an absolute path.
folder_of() {
  REPLY=${1%/*}
  REPLY=${REPLY:-/}
}

# exists PATH: also a dangling link exists.
exists() { [[ -e $1 || -L $1 ]]; }

# absolute PATH: REPLY is the path from the root, without slashes at its end.
absolute() {
  local path=$1
  [[ $path == /* ]] || path=${PWD%/}/$path
  while [[ $path == ?*/ ]]; do path=${path%/}; done
  if [[ $path == */. || $path == */.. ]]; then
    path=$(realpath --canonicalize-missing --no-symlinks -- "$path" && printf /)
    path=${path%$'\n/'}
  fi
  REPLY=$path
}

# select_paths PATH...: `selection` becomes the absolute paths, each once, of what exists. Ends the
# script when nothing is left.
select_paths() {
  local path
  local -A seen=()
  [ $# -gt 0 ] || fail "No file was selected."
  for path; do
    if [[ -n $path ]]; then absolute "$path"; else REPLY=; fi
    path=$REPLY
    if [[ -z $path ]] || ! exists "$path"; then
      quoted "$path"
      [[ -n $path ]] || REPLY='""'
      problem "$REPLY cannot be found."
    elif [[ -z ${seen[$path]-} ]]; then
      seen[$path]=yes
      selection+=("$path")
    fi
  done
  [ ${#selection[@]} -gt 0 ] || finish
}

# select_items PATH...: the same without the root folder, which has no name and no place.
select_items() {
  local path
  local items=()
  select_paths "$@"
  for path in "${selection[@]}"; do
    if [[ $path == / ]]; then
      problem "This cannot be done with the folder \"/\"."
    else
      items+=("$path")
    fi
  done
  [ ${#items[@]} -gt 0 ] || finish
  selection=("${items[@]}")
}

# split_name NAME: sets `stem` and `suffix`. Only the last extension counts, and a name whose only
# dot is its first character has none.
split_name() {
  stem=${1%.*}
  suffix=${1:${#stem}}
  if [[ -z $stem || ${#suffix} -lt 2 ]]; then
    stem=$1
    suffix=
  fi
}

# fit_name STEM ENDING: REPLY is both together; the stem loses its end, whole characters of it, when
# they are longer than a name may be.
fit_name() {
  local stem=$1 room=$((255 - ${#2})) cut
  if [ "$room" -gt 0 ] && [ ${#stem} -gt "$room" ]; then
    cut=$room
    while [ "$cut" -gt 0 ] && [ $((room - cut)) -lt 4 ] && [[ ${stem:cut:1} == [$'\x80'-$'\xbf'] ]]; do
      cut=$((cut - 1))
    done
    [[ $cut -gt 0 && ${stem:cut:1} != [$'\x80'-$'\xbf'] ]] || cut=$room
    stem=${stem:0:cut}
  fi
  REPLY=$stem$2
}

# numbered FOLDER NAME NUMBER: REPLY is the path of "name.ext" for 1, "name 2.ext" for 2 and so on.
numbered() {
  local stem suffix
  split_name "$2"
  if [ "$3" -eq 1 ]; then fit_name "$stem" "$suffix"; else fit_name "$stem" " $3$suffix"; fi
  REPLY=${1%/}/$REPLY
}

# create FOLDER NAME COMMAND...: calls the command, which must refuse a path that exists, with the
# first one that is free. REPLY is that path, or `reason` why there is none.
create() {
  local folder=$1 name=$2 number=0
  shift 2
  while true; do
    number=$((number + 1))
    numbered "$folder" "$name" "$number"
    ! exists "$REPLY" || continue
    ! try "$@" "$REPLY" || return 0
    [ "$reason" = "File exists" ] || return 1
  done
}

# move_to PATH TARGET: gives the thing at the path its new place; `reason` is "File exists" when
# that is taken.
move_to() {
  local status=0
  try mv --no-clobber --no-target-directory -- "$1" "$2" || status=$?
  exists "$1" || return 0
  # Some versions of mv call that a success, others say it in words of their own.
  if [[ $status -eq 0 || $complaints == *": not replacing "* ]]; then reason="File exists"; fi
  return 1
}

# place PATH FOLDER NAME: moves what lies at the path there without ever replacing anything. REPLY
# is the path it got, or `reason` why it stayed.
place() {
  local mode='' number=0
  if [[ -n $staging && $1 == "$staging"/* && -d $1 && ! -L $1 && ! -w $1 ]]; then
    # A folder that may not be written to cannot change its place.
    mode=$(stat --format=%a -- "$1")
    chmod u+w -- "$1"
  fi
  while true; do
    number=$((number + 1))
    numbered "$2" "$3" "$number"
    ! exists "$REPLY" || continue
    ! move_to "$1" "$REPLY" || break
    [ "$reason" = "File exists" ] || return 1
  done
  [[ -z $mode ]] || chmod "$mode" -- "$REPLY"
}

# --- Work ----------------------------------------------------------------------------------------

# try COMMAND...: its exit status. `complaints` is what it wrote about a failure and `reason` the
# end of that, as one line. REPLY stays.
try() {
  local status=0 path=$REPLY
  local -x LC_ALL=C
  complaints=$("$@" 2>&1 >/dev/null) || status=$?
  [ $status -ne 0 ] || return 0
  displayable "${complaints##*: }"
  reason=$REPLY
  REPLY=$path
  return $status
}

# complaint PROGRAM: REPLY is the first error of the last `run`, without the program's name and with
# names for the paths of the selection.
complaint() {
  local path text lines line
  IFS= read -r -d '' -n 65536 text <"$errors" || true
  for path in "${selection[@]:0:100}"; do
    displayable "${path##*/}"
    text=${text//"$path"/$REPLY}
  done
  REPLY="unknown error"
  mapfile -t lines <<<"$text"
  for line in "${lines[@]}"; do
    [[ -n $line && $line != WARNING:* ]] || continue
    line=${line#"$1": }
    # What libarchive adds when the system has nothing to say.
    displayable "${line%: Unknown error -1}"
    REPLY=${REPLY%.}
    return
  done
}

# stage FOLDER: `staging` becomes a folder of our own in it, where a result grows until it is whole.
stage() {
  [[ -z $staging || ${staging%/*} != "${1%/}" ]] || return 0
  staging=${1%/}/.tervano-$$-$SRANDOM
  # Known before it is there, so that no end comes too early to remove it.
  stagings+=("$staging")
  try mkdir --mode=700 -- "$staging" && return
  staging=
  unset 'stagings[-1]'
  quoted "$1"
  problem "Nothing can be written to the folder $REPLY: $reason."
  return 1
}

# unstage: the staging folder goes, with whatever is still in it.
unstage() {
  discard "$staging"
  staging=
  unset 'stagings[-1]'
}

discard() {
  rm -rf -- "$1" 2>/dev/null && return
  # Folders in it may forbid that.
  chmod -R u+rwx -- "$1" 2>/dev/null || true
  rm -rf -- "$1"
}

# run COMMAND...: its exit status. It speaks English, has no terminal to ask at and ends when the
# script is ended; its errors are kept in the file `errors`.
run() {
  local status=0 folder
  local -x LC_ALL=C.UTF-8
  if [[ $errors == /dev/null ]]; then
    # Not beside the result: that disk may be full.
    for folder in "${XDG_RUNTIME_DIR:-/tmp}" "${TMPDIR:-/tmp}"; do
      errors=$folder/tervano-$$-$SRANDOM
      (umask 077 && set -o noclobber && : >"$errors") 2>/dev/null && break
      errors=/dev/null
    done
  fi
  setsid -- "$@" </dev/null 2>"$errors" &
  wait "$!" || status=$?
  last_child=$!
  return $status
}

# A script may define `undo`, which puts things back when the end comes too early. It can come while
# any function here runs, whose local names hide those of the script.
clean_up() {
  local status=$?
  set +e
  trap '' HUP INT TERM
  if declare -F undo >/dev/null; then undo; fi
  for staging in "${stagings[@]}"; do discard "$staging"; done
  [[ $errors == /dev/null ]] || rm -f -- "$errors"
  # Nothing ends in silence, neither a full disk in an unexpected place.
  [[ $status -eq 0 || -n $ended ]] || fail "It was given up after an unexpected error."
}

interrupted() {
  ended=yes
  if [[ ${!-} != "$last_child" ]]; then
    kill -TERM -- "-$!" 2>/dev/null || kill -TERM "$!" 2>/dev/null || true
    wait "$!" 2>/dev/null || true
  fi
  exit "$1"
}

end_on_signals() {
  trap 'interrupted 129' HUP
  trap 'interrupted 130' INT
  trap 'interrupted 143' TERM
}

# hold: from now on a signal waits for `release`, so that what is done and what is remembered of it
# stay together.
hold() {
  held=
  trap 'held=129' HUP
  trap 'held=130' INT
  trap 'held=143' TERM
}

release() {
  end_on_signals
  [[ -z $held ]] || interrupted "$held"
}

trap clean_up EXIT
end_on_signals

# copy_to_clipboard TEXT
copy_to_clipboard() {
  local copier
  if [[ -n ${WAYLAND_DISPLAY-} ]] && command -v wl-copy >/dev/null; then
    copier=(wl-copy --type text/plain)
  elif [[ -n ${DISPLAY-} ]] && command -v xclip >/dev/null; then
    copier=(xclip -selection clipboard -in)
  elif [[ -n ${DISPLAY-} ]] && command -v xsel >/dev/null; then
    copier=(xsel --clipboard --input)
  elif [[ -n ${WAYLAND_DISPLAY-} ]]; then
    need wl-copy wl-clipboard
  elif [[ -n ${DISPLAY-} ]]; then
    need xclip xclip
  else
    fail "There is no graphical session whose clipboard could be used."
  fi
  # The program stays behind as the owner of the clipboard and must not keep our output open.
  printf '%s' "$1" | timeout 10 "${copier[@]}" >/dev/null 2>&1 ||
    fail "The clipboard could not be reached."
}

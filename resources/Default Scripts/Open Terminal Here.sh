#!/usr/bin/env bash
# Opens a terminal in each selected folder, and in the folder of a selected file.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

readonly most=8

choose_terminal() {
  local name words
  terminal=()
  if command -v xdg-terminal-exec >/dev/null; then
    terminal=(xdg-terminal-exec)
    return
  fi
  if [[ -n ${TERMINAL-} ]]; then
    # A program, or a program with options between blanks.
    words=("$TERMINAL")
    command -v -- "$TERMINAL" >/dev/null || read -r -a words <<<"$TERMINAL"
    if command -v -- "${words[0]-}" >/dev/null; then
      terminal=("${words[@]}")
      return
    fi
  fi
  for name in x-terminal-emulator gnome-terminal konsole xfce4-terminal mate-terminal; do
    if command -v "$name" >/dev/null; then
      terminal=("$name")
      return
    fi
  done
  fail "There is no terminal program; install the Debian package \"xterm\"."
}

select_paths "$@"
choose_terminal
[[ -z $users_locale ]] || terminal=(env LC_ALL="$users_locale" "${terminal[@]}")
[[ -n ${WAYLAND_DISPLAY-}${DISPLAY-} ]] ||
  fail "There is no graphical session in which a terminal could be opened."
declare -A seen=()
folders=()
for path in "${selection[@]}"; do
  REPLY=$path
  [[ -d $path ]] || folder_of "$path"
  [[ -z ${seen[$REPLY]-} ]] || continue
  seen[$REPLY]=yes
  folders+=("$REPLY")
done
[ ${#folders[@]} -le $most ] ||
  fail "The selection lies in ${#folders[@]} folders; terminals are opened in $most at most."

for folder in "${folders[@]}"; do
  if ! (
    cd -- "$folder" 2>/dev/null || exit 1
    exec setsid --fork -- "${terminal[@]}" </dev/null >/dev/null 2>&1
  ); then
    quoted "$folder"
    problem "No terminal can be opened in $REPLY."
  fi
done
finish

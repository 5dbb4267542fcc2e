# Runs one handler of a user's script: bash runner.sh SCRIPT. What comes and goes over descriptor 3
# is described in interpreter_user_scripts.h. The script shares this shell, so that every name here
# is one that it will not use, and it may have changed any setting of the shell.
exec {_tervano_channel}>&3 3>&-
mapfile -d '' -t -u "$_tervano_channel" _tervano_fields
_tervano_bash=$BASH
_tervano_script=$1
_tervano_handler=${_tervano_fields[0]}
_tervano_arguments=()
_tervano_at=1
while ((_tervano_at < ${#_tervano_fields[@]})); do
  if [[ ${_tervano_fields[_tervano_at]} == list ]]; then
    _tervano_count=${_tervano_fields[_tervano_at + 1]}
    _tervano_arguments+=("${_tervano_fields[@]:_tervano_at + 2:_tervano_count}")
    ((_tervano_at += 2 + _tervano_count))
  else
    _tervano_arguments+=("${_tervano_fields[_tervano_at + 1]}")
    ((_tervano_at += 2))
  fi
done
unset _tervano_fields
BASH_ARGV0=$_tervano_script
set --

source "$_tervano_script"
_tervano_status=$?
# The last command's status says nothing by itself.
if ((_tervano_status != 0)) && ! "$_tervano_bash" -O extglob -n "$_tervano_script" 2>/dev/null; then
  builtin exit "$_tervano_status"
fi
if ! builtin declare -F -- "$_tervano_handler" >/dev/null; then
  builtin printf 'missing\0' >&"$_tervano_channel"
  builtin exit 1
fi

# Not inside a condition, where "set -e" would be without effect.
"$_tervano_handler" "${_tervano_arguments[@]}"
_tervano_status=$?
if ((_tervano_status == 0)); then
  builtin printf 'done\0nothing\0' >&"$_tervano_channel" || _tervano_status=1
fi
builtin exit "$_tervano_status"

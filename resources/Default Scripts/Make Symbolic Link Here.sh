#!/usr/bin/env bash
# Makes a link beside each selected item. It leads to the item's name alone, so that both can be
# moved together.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

# link_to NAME PATH
link_to() { ln --symbolic --no-target-directory -- "$1" "$2"; }

select_items "$@"
for path in "${selection[@]}"; do
  name_of "$path"
  name=$REPLY
  folder_of "$path"
  if ! create "$REPLY" "Link to $name" link_to "$name"; then
    quoted "$path"
    problem "No link to $REPLY can be made: $reason."
  fi
done
finish

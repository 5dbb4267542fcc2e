#!/usr/bin/env bash
# Joins the selected PDF files, in the order in which they are given, to a new one.
# shellcheck source=lib/common.bash
. "${BASH_SOURCE[0]%"${BASH_SOURCE[0]##*/}"}lib/common.bash"

if ! command -v pdfunite >/dev/null; then need qpdf qpdf; fi
select_items "$@"
# A document without one of its parts helps nobody.
[ ${#problems[@]} -eq 0 ] || finish
[ ${#selection[@]} -gt 1 ] || fail "Select two PDF files or more."
for path in "${selection[@]}"; do
  if [[ ! -f $path ]] || ! head --bytes=1024 -- "$path" 2>/dev/null | grep --quiet --text '%PDF-'; then
    quoted "$path"
    fail "$REPLY is not a PDF file that can be read; nothing was merged."
  fi
done

folder_of "${selection[0]}"
folder=$REPLY
stage "$folder" || finish
status=0
if command -v qpdf >/dev/null; then
  merger=qpdf
  run qpdf --empty --pages "${selection[@]}" -- "$staging/merged" >/dev/null || status=$?
  # 3: done, with a warning about a file that is not quite in order.
  [ $status -ne 3 ] || status=0
else
  merger=pdfunite
  run pdfunite "${selection[@]}" "$staging/merged" >/dev/null || status=$?
fi
if [ $status -ne 0 ] || [ ! -s "$staging/merged" ]; then
  complaint $merger
  fail "The PDF files were not merged: $REPLY."
fi
place "$staging/merged" "$folder" Merged.pdf || fail "The PDF files were not merged: $reason."
finish

#!/usr/bin/env bash
# Black-box checks of the korv command: what it writes, and that a failure
# writes nothing and exits non-zero with a sentence on stderr.
set -u
korv="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fails=0
check() { # description, then a command that must succeed
    local what="$1"; shift
    if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; fails=$((fails + 1)); fi
}

check "new writes a document" "$korv" new 300 200 "$work/a.korvstudio" --background '#FF000080'
check "info reads it back" bash -c "'$korv' info '$work/a.korvstudio' | grep -q '\"width\": 300'"
check "render writes a PNG" "$korv" render "$work/a.korvstudio" "$work/a.png"
check "the PNG opens again" bash -c "'$korv' info '$work/a.png' | grep -q '\"format\": \"png\"'"
check "convert to JPEG at half size" bash -c "'$korv' convert '$work/a.png' '$work/a.jpg' --scale 0.5 | grep -q '150x100'"
check "convert a picture to a document" "$korv" convert "$work/a.jpg" "$work/b.korvstudio"

echo "not a picture" > "$work/bad.png"
check "a bad file fails" bash -c "! '$korv' render '$work/bad.png' '$work/out.png' 2> '$work/err'"
check "and says why" grep -q "could not be opened" "$work/err"
check "and writes nothing" test ! -e "$work/out.png"
cp "$work/a.png" "$work/keep.png"
check "a failing render leaves an existing file alone" bash -c "! '$korv' render '$work/bad.png' '$work/keep.png' 2>/dev/null && cmp -s '$work/a.png' '$work/keep.png'"
check "a canvas over the limit is refused" bash -c "! '$korv' new 30001 1 '$work/c.korvstudio' 2>/dev/null && test ! -e '$work/c.korvstudio'"
check "unknown commands exit 2" bash -c "'$korv' frobnicate 2>/dev/null; test \$? -eq 2"

[ "$fails" -eq 0 ]

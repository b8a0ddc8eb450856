#!/usr/bin/env bash
# Black-box checks of the editor's commands through korv: each is the named
# step the editor records, refusals exit 1 with a sentence and write nothing,
# command-line mistakes exit 2.
korv="$1"
source "$(dirname "$0")/checks.sh"

"$korv" new 64 48 "$work/a.korvstudio" --background '#6080A0' > /dev/null
"$korv" render "$work/a.korvstudio" "$work/a.png"

check "a Levels layer with its values is two named steps" bash -c \
  "'$korv' new-adjustment '$work/a.korvstudio' '$work/b.korvstudio' --type levels --set levels.0.inBlack=0.3 --json |
   grep -q '\"steps\":\[\"New Levels\",\"Adjust\"\]'"
check "the Levels layer is in the document" bash -c "'$korv' info '$work/b.korvstudio' | grep -q '\"kind\": \"adjustment\"'"
"$korv" render "$work/b.korvstudio" "$work/b.png"
check "and changes the picture" bash -c "! cmp -s '$work/a.png' '$work/b.png'"
check "adjust changes the active adjustment layer" bash -c \
  "'$korv' adjust '$work/b.korvstudio' '$work/c.png' --set levels.0.inBlack=0 && cmp -s '$work/a.png' '$work/c.png'"
refused "a field the adjustment lacks is a usage error" 2 "no field" "$work/x.korvstudio" \
  "$korv" adjust "$work/b.korvstudio" "$work/x.korvstudio" --set levels.9.inBlack=1
refused "a value of the wrong type is a usage error" 2 "can.t take" "$work/x.korvstudio" \
  "$korv" adjust "$work/b.korvstudio" "$work/x.korvstudio" --set levels.0.inBlack=dark
refused "adjust on a pixel layer is refused" 1 "is not an adjustment layer" "$work/x.korvstudio" \
  "$korv" adjust "$work/a.korvstudio" "$work/x.korvstudio" --set hue=3

refused "merge down of the only layer changes nothing" 1 "nothing" "$work/x.korvstudio" \
  "$korv" merge-down "$work/a.korvstudio" "$work/x.korvstudio"
refused "an unknown layer name is refused" 1 "There is no layer" "$work/x.korvstudio" \
  "$korv" duplicate-layer "$work/a.korvstudio" "$work/x.korvstudio" --layer Nobody
refused "a mask target needs a mask" 1 "has no mask" "$work/x.korvstudio" \
  "$korv" invert-mask "$work/a.korvstudio" "$work/x.korvstudio" --mask
refused "an unknown blend mode is a usage error" 2 "unknown blend mode" "$work/x.korvstudio" \
  "$korv" set-layer "$work/a.korvstudio" "$work/x.korvstudio" --set blendMode=sparkle

check "duplicate, then hide the copy, then merge is refused for the hidden pair" bash -c "
  '$korv' duplicate-layer '$work/a.korvstudio' '$work/d.korvstudio' &&
  '$korv' set-layer '$work/d.korvstudio' '$work/e.korvstudio' --set visible=false --json | grep -q 'Show / Hide' &&
  ! '$korv' merge-down '$work/e.korvstudio' '$work/f.korvstudio' 2>/dev/null && test ! -e '$work/f.korvstudio'"
check "a mask from a selection, then inverted" bash -c "
  '$korv' add-mask '$work/a.korvstudio' '$work/g.korvstudio' --kind revealSelection --select-rect 8,8,16,16 &&
  '$korv' info '$work/g.korvstudio' | grep -q '\"mask\": \"enabled\"' &&
  '$korv' invert-mask '$work/g.korvstudio' '$work/h.korvstudio' --mask --json | grep -q 'Invert Mask'"

check "select writes the selection's bounds after a feather" bash -c \
  "'$korv' select '$work/a.korvstudio' '$work/s.png' --select-rect 10,10,20,20 --feather 4 --json |
   grep -q '\"steps\":\[\"Selection: Feather\"\]' && '$korv' info '$work/s.png' | grep -q '\"width\": 64'"
check "the wand on a flat picture selects it all" bash -c \
  "'$korv' select '$work/a.korvstudio' '$work/w.png' --wand 3,3 --json | grep -q '\"selection\":\[0,0,64,48\]'"
check "select all then invert leaves nothing" bash -c \
  "'$korv' select '$work/a.korvstudio' '$work/n.png' --all --invert --json | grep -q '\"selection\":null'"
"$korv" convert "$work/s.png" "$work/s-small.png" --scale 0.5 > /dev/null
refused "a selection picture of another size is refused" 1 "must be 64" "$work/x.png" \
  "$korv" select "$work/a.korvstudio" "$work/x.png" --select-mask "$work/s-small.png"
check "a selection picture gives back the selection it shows" bash -c "
  '$korv' select '$work/a.korvstudio' '$work/s.png' --select-rect 10,10,20,20 --feather 4 --json | grep -o '\"selection\":[^]]*' > '$work/s1' &&
  '$korv' select '$work/a.korvstudio' '$work/t.png' --select-mask '$work/s.png' --json | grep -o '\"selection\":[^]]*' > '$work/s2' &&
  cmp -s '$work/s1' '$work/s2' && cmp -s '$work/s.png' '$work/t.png'"

check "rotate a quarter turn swaps the sides" bash -c \
  "'$korv' rotate '$work/a.korvstudio' '$work/r.korvstudio' --turns 1 --json | grep -q '\"height\":64,\"layers\":1,\"selection\":null,\"steps\":\[\"Rotate\"\],\"width\":48'"
check "canvas size, then crop back, gives the picture it started from" bash -c "
  '$korv' canvas '$work/a.korvstudio' '$work/big.korvstudio' --size 100x60 --anchor 1,0 > /dev/null &&
  '$korv' crop '$work/big.korvstudio' '$work/back.png' --rect 36,0,64,48 > /dev/null &&
  cmp -s '$work/a.png' '$work/back.png'"
check "crop to a selection and flip are steps of their own" bash -c "
  '$korv' crop '$work/a.korvstudio' '$work/c1.korvstudio' --select-rect 4,4,10,10 --json | grep -q '\"height\":10' &&
  '$korv' flip '$work/a.korvstudio' '$work/f.korvstudio' --vertical --json | grep -q 'Flip Vertical'"
refused "flip needs a direction" 2 "horizontal or --vertical" "$work/x.png" "$korv" flip "$work/a.korvstudio" "$work/x.png"
check "a transform moves the selected pixels as one step" bash -c "
  '$korv' transform '$work/a.korvstudio' '$work/tr.korvstudio' --translate 5,0 --select-rect 0,0,10,10 --json | grep -q '\"steps\":\[\"Transform\"\]' &&
  ! cmp -s '$work/a.png' \"\$('$korv' render '$work/tr.korvstudio' '$work/tr.png' >/dev/null; echo '$work/tr.png')\""
"$korv" new-layer "$work/a.korvstudio" "$work/empty.korvstudio" > /dev/null
refused "a transform of an empty layer is refused with the editor's sentence" 1 "Nothing to transform" "$work/x.png" \
  "$korv" transform "$work/empty.korvstudio" "$work/x.png"
refused "crop without a selection changes nothing" 1 "nothing" "$work/x.png" \
  "$korv" crop "$work/a.korvstudio" "$work/x.png"
refused "a size over the limit is a usage error" 2 "from 1 to 30000" "$work/x.png" \
  "$korv" resize "$work/a.korvstudio" "$work/x.png" --size 30001x5

[ "$fails" -eq 0 ]

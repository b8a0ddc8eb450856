#!/usr/bin/env bash
# Black-box checks of the korv command: what it writes, and that a failure
# writes nothing and exits non-zero with a sentence on stderr.
korv="$1"
source "$(dirname "$0")/checks.sh"

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

# Layered PSD: written by OUT's extension, read back here and by ImageMagick.
"$korv" new 120 80 "$work/p.korvstudio" --background '#2040A0FF' > /dev/null
"$korv" new-layer "$work/p.korvstudio" "$work/p2.korvstudio" > /dev/null
echo '[[10,40],[110,40]]' > "$work/pline.json"
check "paint writes a PSD" bash -c "'$korv' paint '$work/p2.korvstudio' '$work/p.psd' --brush 'Hard Round' --color '#FF0000' --points '$work/pline.json' --layer 'Layer 1' | grep -q 'layered Photoshop PSD, 120x80'"
check "the PSD opens with both layers" bash -c "'$korv' info '$work/p.psd' | grep -q '\"format\": \"psd\"' && test \$('$korv' info '$work/p.psd' | grep -c '\"kind\": \"pixel\"') -eq 2"
check "convert writes a PSD whatever the case of its extension" bash -c "'$korv' convert '$work/p.psd' '$work/q.PSD' | grep -q 'layered Photoshop PSD' && '$korv' render '$work/q.PSD' '$work/q.png' > /dev/null"
check "ImageMagick sees the merged picture and both layers by name" bash -c "identify -format '%[label]|%g\n' '$work/p.psd' 2>/dev/null | tr '\n' ' ' | grep -qx '|120x80+0+0 Background|120x80+0+0 Layer 1|120x30+0+25 '"
check "with their pixels" bash -c "test \"\$(convert '$work/p.psd[0]' -format '%[pixel:p{60,40}] %[pixel:p{60,5}]' info:)\" = 'srgba(255,0,0,1) srgba(32,64,160,1)' && test \"\$(convert '$work/p.psd[2]' -format '%[pixel:p{60,15}]' info:)\" = 'srgba(255,0,0,1)'"
printf '8BPS\0\1' > "$work/cut.psd"
check "a cut PSD is refused with a sentence" bash -c "! '$korv' render '$work/cut.psd' '$work/cut.png' 2> '$work/err' && grep -q 'ends too early' '$work/err' && test ! -e '$work/cut.png'"

# Brushes and painting.
check "help documents one command" bash -c "'$korv' help paint | grep -q -- '--points FILE' && ! '$korv' help paint | grep -q 'convert IN'"
check "brushes lists 33 brushes" bash -c "test \$('$korv' brushes | grep -c '\"strength\":') -eq 33"
check "with every coded field and stable ids" bash -c "'$korv' brushes | grep -q '\"id\": \"238A507A-F3BA-443A-B3D1-B0FA438BBE72\"' && '$korv' brushes | grep -q '\"isBuiltIn\": true'"
check "brushes keep their ids from run to run" bash -c "'$korv' brushes > '$work/b1.json' && '$korv' brushes > '$work/b2.json' && cmp -s '$work/b1.json' '$work/b2.json'"
"$korv" new 300 200 "$work/white.korvstudio" --background '#FFFFFF' > /dev/null
echo '[[20,100],[280,100]]' > "$work/line.json"
check "paint a black line" "$korv" paint "$work/white.korvstudio" "$work/line.png" --brush "Hard Round" --color '#000000' --points "$work/line.json"
check "the line is on the picture" bash -c "'$korv' paint '$work/white.korvstudio' '$work/line.korvstudio' --brush 'Hard Round' --color '#000000' --points '$work/line.json' --json | grep -q '\"dirty\":{\"h\":33'"
check "points from standard input, a seed, a set field and a hold" bash -c "echo '[[150,100,0.5,0]]' | '$korv' paint '$work/white.korvstudio' '$work/spray.png' --brush 'Spray Can' --color '#FF000080' --points - --seed 7 --set size=40 --set sprayDensity=5 --hold 0.2 --json | grep -q '\"dabCount\":6'"
check "the same seed paints the same pixels" bash -c "for i in 1 2; do echo '[[150,100],[160,120]]' | '$korv' paint '$work/white.korvstudio' \"$work/c\$i.png\" --brush Charcoal --color '#112233' --points - --seed 3 >/dev/null; done; cmp -s '$work/c1.png' '$work/c2.png'"
"$korv" new 300 200 "$work/clear.korvstudio" > /dev/null
check "paint inside a selection only" bash -c "'$korv' paint '$work/clear.korvstudio' '$work/sel.korvstudio' --brush 'Hard Round' --color '#000000' --points '$work/line.json' --select-rect 0,0,100,200 >/dev/null && '$korv' info '$work/sel.korvstudio' | grep -A3 contentBounds | grep -q '\"w\": 95'"
"$korv" new 300 200 "$work/black.korvstudio" --background '#000000' > /dev/null
check "a grey picture as the selection" bash -c "echo '[[50,100]]' | '$korv' paint '$work/black.korvstudio' '$work/mask.png' --brush 'Hard Round' --color '#FFFFFF' --set size=100 --points - >/dev/null && '$korv' paint '$work/clear.korvstudio' '$work/sm.korvstudio' --brush 'Hard Round' --color '#000000' --points '$work/line.json' --select-mask '$work/mask.png' >/dev/null && '$korv' info '$work/sm.korvstudio' | grep -A3 contentBounds | grep -q '\"w\": 95'"
check "a selection picture of another size is refused" bash -c "! '$korv' paint '$work/clear.korvstudio' '$work/x.png' --brush 'Hard Round' --color '#000000' --points '$work/line.json' --select-mask '$work/a.jpg' 2>/dev/null && test ! -e '$work/x.png'"
check "an unknown brush is a usage error" bash -c "'$korv' paint '$work/white.korvstudio' '$work/x.png' --brush 'hard round' --color '#000000' --points '$work/line.json' 2>/dev/null; test \$? -eq 2 && test ! -e '$work/x.png'"
check "an unknown field is a usage error" bash -c "'$korv' paint '$work/white.korvstudio' '$work/x.png' --brush 'Hard Round' --color '#000000' --points '$work/line.json' --set bogus=1 2>/dev/null; test \$? -eq 2"
check "a field of the wrong type is a usage error" bash -c "'$korv' paint '$work/white.korvstudio' '$work/x.png' --brush 'Hard Round' --color '#000000' --points '$work/line.json' --set size=true 2>/dev/null; test \$? -eq 2"
echo '{"x": 1}' > "$work/badpoints.json"
check "unreadable points fail with a sentence and write nothing" bash -c "! '$korv' paint '$work/white.korvstudio' '$work/x.png' --brush 'Hard Round' --color '#000000' --points '$work/badpoints.json' 2> '$work/err' && grep -q 'must be a JSON array' '$work/err' && test ! -e '$work/x.png'"
check "a missing layer is refused" bash -c "'$korv' paint '$work/white.korvstudio' '$work/x.png' --brush 'Hard Round' --color '#000000' --points '$work/line.json' --layer Nope 2>/dev/null; test \$? -eq 1 && test ! -e '$work/x.png'"
check "hostile points do no harm" bash -c "echo '[[1e308,-1e308],[0,0,-5,1e300],[5e9,3]]' | '$korv' paint '$work/white.korvstudio' '$work/h.png' --brush 'Hard Round' --color '#000000' --points - >/dev/null"

[ "$fails" -eq 0 ]

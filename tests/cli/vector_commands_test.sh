#!/usr/bin/env bash
# Black-box checks of korv add and korv fonts: layers from records, inline or
# in a file, as the editor's named steps; mistakes in a record exit 2.
korv="$1"
source "$(dirname "$0")/checks.sh"

"$korv" new 300 200 "$work/a.korvstudio" --background '#203040' > /dev/null
"$korv" render "$work/a.korvstudio" "$work/a.png"

check "a text layer from an inline record takes its name from the text" bash -c \
  "'$korv' add '$work/a.korvstudio' '$work/t.korvstudio' --text '{\"text\":\"Hello\",\"size\":40}' --json |
   grep -q '\"kind\":\"text\",\"layer\":\"Hello\",\"layers\":2'"
check "the record keeps its defaults for the fields left out" bash -c \
  "'$korv' info '$work/t.korvstudio' | grep -q '\"kind\": \"text\"'"
"$korv" render "$work/t.korvstudio" "$work/t.png"
check "and the text shows" bash -c "! cmp -s '$work/a.png' '$work/t.png'"

echo '{"kind":"star","x":50,"y":20,"w":150,"h":150,"sides":5}' > "$work/star.json"
check "a shape from a file, named" bash -c \
  "'$korv' add '$work/t.korvstudio' '$work/s.korvstudio' --shape '$work/star.json' --name Badge --json |
   grep -q '\"kind\":\"shape\",\"layer\":\"Badge\",\"layers\":3'"
check "a fill goes above the layer named" bash -c "
  '$korv' add '$work/s.korvstudio' '$work/f.korvstudio' --fill '{\"kind\":\"pattern\",\"scale\":10}' --layer Background > /dev/null &&
  '$korv' info '$work/f.korvstudio' | tr -d ' \n' | grep -q '\"name\":\"Badge\".*\"name\":\"Hello\".*\"name\":\"PatternFill1\".*\"name\":\"Background\"'"
check "the same record gives the same pixels" bash -c "
  '$korv' add '$work/a.korvstudio' '$work/t2.png' --text '{\"text\":\"Hello\",\"size\":40}' > /dev/null &&
  cmp -s '$work/t.png' '$work/t2.png'"

refused "a field the record lacks is a usage error" 2 "no field" "$work/x.korvstudio" \
  "$korv" add "$work/a.korvstudio" "$work/x.korvstudio" --text '{"txt":"Hi"}'
refused "a value of the wrong type is a usage error" 2 "does not fit" "$work/x.korvstudio" \
  "$korv" add "$work/a.korvstudio" "$work/x.korvstudio" --shape '{"kind":"blob"}'
refused "two records at once are a usage error" 2 "exactly one" "$work/x.korvstudio" \
  "$korv" add "$work/a.korvstudio" "$work/x.korvstudio" --text '{}' --fill '{}'
refused "a record file that isn't there is refused" 1 "" "$work/x.korvstudio" \
  "$korv" add "$work/a.korvstudio" "$work/x.korvstudio" --fill "$work/none.json"

check "fonts lists the families, the default's stand-in among them" bash -c "
  '$korv' fonts > '$work/fonts' && grep -qx 'Liberation Sans' '$work/fonts' && grep -qx 'DejaVu Sans Mono' '$work/fonts' &&
  '$korv' fonts --json | grep -q '\"default\":\"Liberation Sans\"'"

[ "$fails" -eq 0 ]

# Shared by the black-box scripts: sourced with the korv binary as $korv.
# `check` runs a command that must succeed; `refused` a command that must
# exit with the given status, say the given words on stderr and write nothing.
set -u
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fails=0
check() { # description, then a command that must succeed
    local what="$1"; shift
    if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; fails=$((fails + 1)); fi
}
refused() { # description, expected exit status, expected words on stderr, output file, command...
    local what="$1" status="$2" words="$3" out="$4"; shift 4
    "$@" 2> "$work/err" > /dev/null
    local got=$?
    if [ "$got" -eq "$status" ] && grep -q -- "$words" "$work/err" && [ ! -e "$out" ]; then
        echo "ok: $what"
    else
        echo "FAILED: $what (exit $got: $(cat "$work/err"))"; fails=$((fails + 1))
    fi
}

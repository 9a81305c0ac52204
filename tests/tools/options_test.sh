#!/usr/bin/env bash
# The man page and the shells know every option that velora-vsp has, and no other:  options_test.sh TOOL SOURCES
# A shell that is not installed is left out, and named.
set -euo pipefail
PATH="$(dirname "$1"):$PATH"
completions="$2/tools/completions"
failed=0

# same WHO EXPECTED GOT
same() {
    diff <(sort -u <<<"$2") <(sort -u <<<"$3") >&2 || { echo "$1 differs from --help (<)" >&2; failed=1; }
}

help="$(velora-vsp --help)"
options="$(sed -nE 's/^  ((-[a-z],)?--[a-z-]+).*/\1/p' <<<"$help")"
long="$(sed 's/^-.,//' <<<"$options")"
[ "$(wc -l <<<"$options")" -gt 10 ] || { echo "--help can't be read" >&2; exit 1; }

same "The man page" "$options" "$(sed -nE 's/^\*((-[a-z])\*, \*)?(--[a-z-]+)\*.*/\2,\3/p' "$2/docs/man/velora-vsp.1.scd" |
    sed 's/^,//')"

# A shell's own words are put in place of what only an interactive one has.
in_bash() {
    COMP_WORDS=(velora-vsp "$@") COMP_CWORD=$#
    _velora_vsp
    printf '%s\n' "${COMPREPLY[@]}"
}
source "$completions/velora-vsp.bash"
same bash "$long" "$(in_bash --)"
same "bash, values" $'natural\nengine' "$(in_bash --sound '')"

if command -v zsh >/dev/null; then
    in_zsh='
        _call_program() { shift; "$@" }
        _describe() { print -l -- ${${(P)3}%%:*} }
        compadd() { print -l $@ }
        complete() { words=(velora-vsp $@) CURRENT=$(($# + 1)) PREFIX=$@[-1]; source $file }
        file=$1; shift; complete "$@"'
    same zsh "$long" "$(zsh -fc "$in_zsh" zsh "$completions/_velora-vsp" --)"
    same "zsh, values" $'music\nspeech' "$(zsh -fc "$in_zsh" zsh "$completions/_velora-vsp" --material '')"
else
    echo "No zsh"
fi

if command -v fish >/dev/null; then
    in_fish='source $argv[1]; complete -C $argv[2]'
    same fish "$long" "$(fish -Nc "$in_fish" "$completions/velora-vsp.fish" 'velora-vsp --' | cut -f 1)"
    same "fish, values" $'16\n24\n32\nfloat' \
        "$(fish -Nc "$in_fish" "$completions/velora-vsp.fish" 'velora-vsp --bits ' | cut -f 1)"
else
    echo "No fish"
fi
exit "$failed"

#!/usr/bin/env bash
# The man page and the shells know every option that a tool has, and no other:  options_test.sh TOOL SOURCES
# A shell that is not installed is left out, and named.
set -euo pipefail
PATH="$(dirname "$1"):$PATH"
tool="$(basename "$1")"
completions="$2/tools/completions"
failed=0

# same WHO EXPECTED GOT
same() {
    diff <(sort -u <<<"$2") <(sort -u <<<"$3") >&2 || { echo "$1 differs from --help (<)" >&2; failed=1; }
}

help="$("$tool" --help)"
options="$(sed -nE 's/^  ((-[a-z],)?--[a-z-]+).*/\1/p' <<<"$help")"
long="$(sed 's/^-.,//' <<<"$options")"
[ "$(wc -l <<<"$options")" -gt 3 ] || { echo "--help can't be read" >&2; exit 1; }

same "The man page" "$options" "$(sed -nE 's/^\*((-[a-z])\*, \*)?(--[a-z-]+)\*.*/\2,\3/p' "$2/docs/man/$tool.1.scd" |
    sed 's/^,//')"

# A shell's own words are put in place of what only an interactive one has.
in_bash() {
    COMP_WORDS=("$tool" "$@") COMP_CWORD=$#
    "_${tool//-/_}"
    printf '%s\n' "${COMPREPLY[@]}"
}
source "$completions/$tool.bash"
same bash "$long" "$(in_bash --)"
[ "$tool" = velora-play ] || same "bash, values" $'natural\nengine' "$(in_bash --sound '')"

if command -v zsh >/dev/null; then
    in_zsh='
        _call_program() { shift; "$@" }
        _describe() { print -l -- ${${(P)3}%%:*} }
        compadd() { print -l $@ }
        complete() { words=($tool $@) CURRENT=$(($# + 1)) PREFIX=$@[-1]; source $file }
        tool=$1 file=$2; shift 2; complete "$@"'
    same zsh "$long" "$(zsh -fc "$in_zsh" zsh "$tool" "$completions/_$tool" --)"
    [ "$tool" = velora-play ] || same "zsh, values" $'music\nspeech' "$(zsh -fc "$in_zsh" zsh "$tool" "$completions/_$tool" --material '')"
else
    echo "No zsh"
fi

if command -v fish >/dev/null; then
    in_fish='source $argv[1]; complete -C $argv[2]'
    same fish "$long" "$(fish -Nc "$in_fish" "$completions/$tool.fish" "$tool --" | cut -f 1)"
    [ "$tool" = velora-play ] || same "fish, values" $'16\n24\n32\nfloat' \
        "$(fish -Nc "$in_fish" "$completions/$tool.fish" "$tool --bits " | cut -f 1)"
else
    echo "No fish"
fi
exit "$failed"

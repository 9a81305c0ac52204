# Completion for bash. Options are those that the installed velora-play tells of.

_velora_play() {
    local word=${COMP_WORDS[COMP_CWORD]} options
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    -s | --speed)
        compopt +o default # a number
        return
        ;;
    esac
    [[ $word == -* ]] || return # a file, which bash completes by itself
    options=$("${COMP_WORDS[0]}" --help 2>/dev/null | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p')
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -o filenames -o default -F _velora_play velora-play

# Completion for bash. Options are those that the installed velora-vsp tells of.

_velora_vsp() {
    local word=${COMP_WORDS[COMP_CWORD]} choices=
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --sound) choices='natural engine' ;;
    --material) choices='music speech' ;;
    --bits) choices='16 24 32 float' ;;
    -o | --output-dir)
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
        ;;
    *)
        [[ $word == -* ]] || return # a file, which bash completes by itself
        choices=$("${COMP_WORDS[0]}" --help 2>/dev/null | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p')
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
}
complete -o filenames -o default -F _velora_vsp velora-vsp

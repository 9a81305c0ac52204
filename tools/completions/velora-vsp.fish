# Completion for fish. Options are those that the installed velora-vsp tells of.

for line in (velora-vsp --help 2>/dev/null |
        string replace -rf '^  (?:-([a-z]),)?--([a-z-]+)( [A-Z]\S*)? *(.*)$' '$1'\t'$2'\t'$3'\t'$4')
    set -l part (string split \t -- $line)
    set -l option -l $part[2] -d $part[4]
    test -n "$part[1]"; and set -a option -s $part[1]
    test -n "$part[3]"; and set -a option -r
    complete -c velora-vsp $option
end
complete -c velora-vsp -l sound -xa 'natural engine'
complete -c velora-vsp -l material -xa 'music speech'
complete -c velora-vsp -l bits -xa '16 24 32 float'
complete -c velora-vsp -l output-dir -s o -xa '(__fish_complete_directories)'

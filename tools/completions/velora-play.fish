# Completion for fish. Options are those that the installed velora-play tells of.

for line in (velora-play --help 2>/dev/null |
        string replace -rf '^  (?:-([a-z]),)?--([a-z-]+)( [A-Z]\S*)? *(.*)$' '$1'\t'$2'\t'$3'\t'$4')
    set -l part (string split \t -- $line)
    set -l option -l $part[2] -d $part[4]
    test -n "$part[1]"; and set -a option -s $part[1]
    test -n "$part[3]"; and set -a option -r
    complete -c velora-play $option
end

# bash completion for tally

_tally() {
    local cur prev
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}

    case $prev in
        --export)
            COMPREPLY=($(compgen -W 'csv json' -- "$cur"))
            return
            ;;
        --days)
            # A number of days: nothing to offer.
            COMPREPLY=()
            return
            ;;
    esac

    local options='--scan --remote --export --days --limits --hidden --help --version'
    COMPREPLY=($(compgen -W "$options" -- "$cur"))
}

complete -F _tally tally

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
        --order)
            COMPREPLY=($(compgen -W 'asc desc' -- "$cur"))
            return
            ;;
        --week-start)
            COMPREPLY=($(compgen -W 'monday sunday' -- "$cur"))
            return
            ;;
        --provider)
            COMPREPLY=($(compgen -W 'claude-code grok-cli codex-cli gemini-cli cursor-agent
                cursor-on-demand opencode github-copilot devin-cli antigravity anthropic-api
                openai-api xai-api openrouter deepseek gumloop' -- "$cur"))
            return
            ;;
        --days | --since | --until)
            # A number or a date: nothing to offer.
            COMPREPLY=()
            return
            ;;
    esac

    case ${COMP_WORDS[1]} in
        report)
            local options='daily weekly monthly session project model --since --until
                --provider --breakdown --remote --json --order --week-start --no-color --help'
            COMPREPLY=($(compgen -W "$options" -- "$cur"))
            return
            ;;
        statusline)
            COMPREPLY=($(compgen -W '--help' -- "$cur"))
            return
            ;;
    esac

    local options='--scan --remote --export --days --limits --hidden --help --version'
    [ "$COMP_CWORD" -eq 1 ] && options="report statusline $options"
    COMPREPLY=($(compgen -W "$options" -- "$cur"))
}

complete -F _tally tally

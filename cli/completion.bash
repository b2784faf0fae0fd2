# Completion for bash: commands, options and their choices, as the program's own --help lists them.
_tessel() {
    local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local help commands command= word
    help=$("$program" --help 2>/dev/null) || return
    commands=$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z0-9]*\) .*/\1/p' <<<"$help")
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if grep -qxF -- "$word" <<<"$commands"; then
            command=$word
            help=$("$program" "$command" --help 2>/dev/null)
            break
        fi
    done
    local options choices=
    options=$(sed -n 's/^  \(-[a-z],\)\{0,1\}\(--[a-z0-9-]*\).*/\2/p' <<<"$help")
    if [[ $before == --* ]]; then
        choices=$(sed -n "s/^  $before \([a-z0-9A-Z]*|[^ =[]*\).*/\1/p" <<<"$help")
    fi
    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$current"))
    elif [[ -n $choices ]]; then
        COMPREPLY=($(compgen -W "${choices//|/ }" -- "$current"))
    elif [[ -z $command && $before != --* ]]; then
        COMPREPLY=($(compgen -W "$commands" -- "$current"))
    fi
}
complete -o bashdefault -o default -F _tessel tessel

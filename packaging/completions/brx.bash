# Completion of brx and brxview for bash: commands and options are those that the programs' own help names.

_velbrx_options() # program and command, if any
{
    "$@" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]+' | sort -u
}

_velbrx()
{
    local program=$1 word=${COMP_WORDS[COMP_CWORD]} command= place
    if [ "${program##*/}" = brx ]; then
        for ((place = 1; place < COMP_CWORD; ++place)); do
            [[ ${COMP_WORDS[place]} != -* ]] && command=${COMP_WORDS[place]} && break
        done
        if [ -z "$command" ] && [[ $word != -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$("$program" --help 2>/dev/null |
                sed -n '/^Subcommands:/,$ s/^  \([a-z]*\) .*/\1/p')" -- "$word")
            return
        fi
    fi
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_velbrx_options "$program" $command)" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}

complete -o filenames -F _velbrx brx brxview

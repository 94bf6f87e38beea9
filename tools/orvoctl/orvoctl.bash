# bash completion for orvoctl: verbs, options, services, and the paths and roles that the services' trees have.

_orvoctl()
{
    # From the line itself, since a path's ":" would be a word break otherwise.
    local line=${COMP_LINE:0:COMP_POINT}
    local -a words
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] && words+=("")
    local current=${words[-1]}
    mapfile -t COMPREPLY < <("${words[0]}" __complete "${words[@]:1}" 2>/dev/null)
    if ((${#COMPREPLY[@]} == 1)) && [[ ${COMPREPLY[0]} == *[:/] ]]; then
        compopt -o nospace 2>/dev/null
    fi
    # What stands ahead of the last break is on the line already.
    local breaks head=""
    for breaks in : =; do
        if [[ $COMP_WORDBREAKS == *$breaks* && $current == *$breaks* ]]; then
            local candidate=${current%"${current##*"$breaks"}"}
            ((${#candidate} > ${#head})) && head=$candidate
        fi
    done
    COMPREPLY=("${COMPREPLY[@]#"$head"}")
}
complete -F _orvoctl orvoctl

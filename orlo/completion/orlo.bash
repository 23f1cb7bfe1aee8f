# Completion of orlo's command lines in bash. What fits is orlo's own to say.

_orlo() {
    local word words=() files=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        # What stands on both sides of "=" are words of their own here, and so is "=".
        [[ $word == = ]] || words+=("$word")
    done
    [[ ${COMP_WORDS[COMP_CWORD]} == = ]] && words+=("")
    COMPREPLY=()
    while IFS= read -r word; do
        if [[ $word == :files ]]; then
            files=yes
        else
            COMPREPLY+=("${word%%$'\t'*}")
        fi
    done < <("${COMP_WORDS[0]}" complete -- "${words[@]}" 2>/dev/null)
    if [[ -n $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "${words[-1]}")
    fi
}
complete -F _orlo orlo

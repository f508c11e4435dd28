# Completion of nimprops for bash.
_nimprops()
{
    local current=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]-}
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W 'check print get instance diff --help --version' -- "$current")
        return
    fi
    case $command in
        check)
            if [[ $current == -* ]]; then
                mapfile -t COMPREPLY < <(compgen -W '--log' -- "$current")
                return
            fi
            ;;&
        check | diff)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            ;;
        print | get | instance)
            if [ "$COMP_CWORD" -eq 2 ]; then
                compopt -o filenames
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
            elif [ "$command" = get ] && [ "$COMP_CWORD" -eq 3 ]; then
                # Keys do not contain "=".
                local keys
                keys=$(nimprops print "${COMP_WORDS[2]}" 2>/dev/null | cut -d= -f1)
                mapfile -t COMPREPLY < <(compgen -W "$keys" -- "$current")
            fi
            ;;
    esac
}
complete -F _nimprops nimprops

# Completion of nimlog for bash.
_nimlog()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words
    case $previous in
        -s | --severity) words='TRACE DEBUG INFO NOTICE WARNING ERROR FATAL' ;;
        --count) words='severity module source thread hour' ;;
        --color) words='auto always never' ;;
        --mask)
            words='ALL NONE DATETIME SEVERITY HOSTNAME PROCESSNAME PROCESSID THREADID MODULENAME SOURCEFILE LINENUMBER'
            ;;
        --config)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        -m | --module | -t | --thread | --since | --until | -w | --where | -g | --grep | -n | --last) return ;;
        *)
            if [[ $current != -* ]]; then
                compopt -o filenames
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
                return
            fi
            words='--follow --severity --module --thread --since --until --where --grep --fixed-strings --ignore-case --last --count --json --unescape --resolve
                --color --mask --config --help --version'
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -F _nimlog nimlog

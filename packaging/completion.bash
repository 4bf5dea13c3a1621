# Completion of appcfg for bash: the program itself knows what fits.
_appcfg() {
    mapfile -t COMPREPLY < <(appcfg --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    case ${COMPREPLY[0]-} in
    *[/.=[]) [ ${#COMPREPLY[@]} -ne 1 ] || compopt -o nospace ;;
    esac
}
complete -o default -F _appcfg appcfg

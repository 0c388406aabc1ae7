# Completion of ferrodeck for bash.

_ferrodeck() {
    local cur prev words cword
    _init_completion -n = || return
    case $cur in
    --left=* | --right=*)
        cur=${cur#*=}
        _filedir -d
        return
        ;;
    --active=*)
        mapfile -t COMPREPLY < <(compgen -W "left right" -- "${cur#*=}")
        return
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "--left= --right= --active= --geometry=" -- "$cur")
    [[ ${COMPREPLY-} == *= ]] && compopt -o nospace
} && complete -F _ferrodeck ferrodeck

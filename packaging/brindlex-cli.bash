# bash completion for brindlex-cli: subcommands, their options, and files
# (or directories) for the operands and for options that take a FILE.
_brindlex_cli()
{
    local cur prev words cword
    if declare -F _init_completion >/dev/null; then
        _init_completion || return
    else
        words=("${COMP_WORDS[@]}") cword=$COMP_CWORD
        cur=${words[cword]} prev=${words[cword - 1]}
    fi

    local commands="find replace sets decode page dump"
    local runopts="-s --subdirs -c --match-case -i --ignore-case -a --ask --no-angle
        --log-finds --log-replaces --log --files-from --files0-from -0 --null
        --no-progress --help"

    local i command=""
    for ((i = 1; i < cword; i++)); do
        case ${words[i]} in
            -*) ;;
            *) command=${words[i]}; break ;;
        esac
    done

    if [[ -z $command ]]; then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi

    case $prev in
        --log | --files-from | --files0-from | -o | --output | --save)
            _filedir
            return
            ;;
        --mode | --format)
            COMPREPLY=($(compgen -W "0 1 2 3" -- "$cur"))
            return
            ;;
        --size)
            COMPREPLY=($(compgen -W "2 4" -- "$cur"))
            return
            ;;
        --width | --pos | --block | --cols)
            return
            ;;
    esac

    if [[ $cur == -* ]]; then
        local opts
        case $command in
            find) opts=$runopts ;;
            replace) opts="$runopts --dry-run" ;;
            sets) opts="$runopts --find --replace" ;;
            decode) opts="--no-angle --help" ;;
            page) opts="--mode --width --format --pos --block --save --help" ;;
            dump) opts="--size --cols -o --output --help" ;;
        esac
        COMPREPLY=($(compgen -W "$opts" -- "$cur"))
        return
    fi
    _filedir
} &&
    complete -F _brindlex_cli brindlex-cli

# Without the bash-completion package, plain file names.
declare -F _filedir >/dev/null || _filedir() { COMPREPLY=($(compgen -f -- "$cur")); }

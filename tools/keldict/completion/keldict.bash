# Completes the command line of keldict, for bash.
# shellcheck shell=bash

_keldict_words()
{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

_keldict_files()
{
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -X '!*.@(json|db)' -- "$1"; compgen -d -- "$1")
}

_keldict()
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]-}
    if [[ $COMP_CWORD -eq 1 ]]; then
        _keldict_words 'check convert show diff --help --version' "$word"
        return
    fi
    case $before in
        --format) _keldict_words 'text json sarif' "$word" ;;
        --accept) _keldict_words 'nul-byte column-name wrong-acceptance changed-id large-id empty-name similar-name wrong-type byte-overflow inherited-field unknown-key duplicate-key nul-in-text invalid-utf8 unknown-type type-not-restored unconvertible-value changed-value rounded-when-saved out-of-bounds bounds-exchanged text-not-restored' "$word" ;;
        --block | --id | --name | --limit) ;;
        *)
            case $command:$word in
                check:-*) _keldict_words '--strict --accept --format --limit --help' "$word" ;;
                convert:-*) _keldict_words '--force --help' "$word" ;;
                show:-*) _keldict_words '--block --id --name --json --help' "$word" ;;
                diff:-*) _keldict_words '--help' "$word" ;;
                *) _keldict_files "$word" ;;
            esac
            ;;
    esac
}

complete -F _keldict keldict

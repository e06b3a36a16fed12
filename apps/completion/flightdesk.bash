# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Completes flightdesk and flightserver in bash. The words come from the programs' own help.

# What follows an option: files, folders, nothing, or the values that its help lists.
_kv_value()
{
    local kind
    kind=$("${@:3}" --help 2>/dev/null | sed -n "s/^ .*$2 <\([^>]*\)>.*/\1/p" | head -n 1)
    case $kind in
    "") return 1 ;;
    DIR) compopt -o dirnames ;;
    FILE*) compopt -o default ;;
    FORMAT) mapfile -t COMPREPLY < <(compgen -W "tlog kml gpx geojson csv" -- "$1") ;;
    esac
}

_kv_options()
{
    mapfile -t COMPREPLY < <(compgen -W "$("${@:2}" --help 2>/dev/null | grep -oE -- '^ +(-., )?--[a-z-]+' |
        grep -oE -- '--[a-z-]+')" -- "$1")
}

_flightdesk()
{
    local word=$2 before=$3 program=("$1")
    [ "$COMP_CWORD" -lt 2 ] || [ "${1##*/}" = flightserver ] || program+=("${COMP_WORDS[1]}")
    case $before in
    --*) ! _kv_value "$word" "$before" "${program[@]}" || return 0 ;;
    esac
    if [ "${word#-}" != "$word" ]; then
        _kv_options "$word" "${program[@]}"
    elif [ "$COMP_CWORD" -eq 1 ] && [ "${1##*/}" = flightdesk ]; then
        mapfile -t COMPREPLY < <(compgen -W "$("$1" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')" -- "$word")
    elif [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "token ledger" -- "$word")
    else
        compopt -o default
    fi
}

complete -F _flightdesk flightdesk flightserver

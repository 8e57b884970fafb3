# Completion of the command lines of vesk, vesk-uci and vesk-data for bash. Needs nothing but bash.

_vesk_words()
{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

_vesk_files()
{
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen "$1" -- "$2")
}

_vesk()
{
    local word=$2 before=$3

    case $before in
        -cfg | -book | -mkbook | -mktune | -anepd | -scan_pgn[1-4])
            _vesk_files -f "$word"
            ;;
        -tbpath)
            _vesk_files -d "$word"
            ;;
        -threads)
            _vesk_words "1 2 4 8 16 $(nproc)" "$word"
            ;;
        -hash)
            _vesk_words "64 256 1024 4096" "$word"
            ;;
        -d | -t | -n | -nps | -noise) ;; # a number of one's own
        *)
            _vesk_words "-uci -c -threads -hash -cfg -book -tbpath -d -t -n -nps -log -quiet
                -noise -bench -pbench -mkbook -mktune -anepd
                -scan_pgn1 -scan_pgn2 -scan_pgn3 -scan_pgn4" "$word"
            ;;
    esac
}

_vesk_uci()
{
    if [ "$COMP_CWORD" -eq 1 ]; then
        _vesk_words "bench doctor --version --help" "$2"
        return
    fi
    case ${COMP_WORDS[1]} in
        doctor)
            case $3 in
                --tables) _vesk_files -d "$2" ;;
                --book) _vesk_files -f "$2" ;;
                *) _vesk_words "--tables --book" "$2" ;;
            esac
            ;;
    esac # the depth behind "bench" is a number of one's own
}

# vesk-data tells its words and their options itself, so that nothing is said twice: a word begins a
# line of its page behind two blanks, and so does an option, with what it takes behind it in capitals
# or as words with bars between.
_vesk_data_page()
{
    "${COMP_WORDS[0]}" "$@" 2>/dev/null </dev/null
}

_vesk_data()
{
    local word=$2 before=$3 line offered=
    if [ "$COMP_CWORD" -eq 1 ]; then
        while IFS= read -r line; do
            if [[ $line =~ ^'  '([a-z]+)'  ' ]]; then
                offered+=" ${BASH_REMATCH[1]}"
            fi
        done < <(_vesk_data_page --help)
        _vesk_words "$offered --version --help" "$word"
        return
    fi
    while IFS= read -r line; do
        [[ $line == '  --'* ]] || continue
        line=${line#  }
        # One option, or one that goes with another.
        while [[ $line =~ ^(--[a-z-]+)(' '([A-Z][^ ]*|[^ ]+\|[^ ]*))?' '?(.*) ]]; do
            [ "${BASH_REMATCH[1]}" = --version ] || offered+=" ${BASH_REMATCH[1]}"
            line=${BASH_REMATCH[4]}
            [ "${BASH_REMATCH[1]}" = "$before" ] || continue
            case ${BASH_REMATCH[3]} in
                '') ;; # takes nothing
                *\|*)
                    _vesk_words "${BASH_REMATCH[3]//|/ }" "$word"
                    return
                    ;;
                FILE | PATH)
                    _vesk_files -f "$word"
                    return
                    ;;
                FOLDER)
                    _vesk_files -d "$word"
                    return
                    ;;
                *) return ;; # something of one's own
            esac
        done
    done < <(_vesk_data_page "${COMP_WORDS[1]}" --help; _vesk_data_page --help)
    case $word in
        -*) _vesk_words "$offered --help" "$word" ;;
        *) _vesk_files -f "$word" ;;
    esac
}

complete -F _vesk vesk
complete -F _vesk_uci vesk-uci
complete -F _vesk_data vesk-data

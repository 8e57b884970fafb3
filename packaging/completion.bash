# Completion of vesk's and vesk-uci's command lines for bash. Needs nothing but bash.

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

complete -F _vesk vesk
complete -F _vesk_uci vesk-uci

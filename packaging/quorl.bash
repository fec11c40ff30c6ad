# Completion of the quorl command in bash: commands, options, and files where an option takes one.

_quorl() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command= options i
    local bus='--daemon --service --network --trust --identity --user --password-file'
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            if [[ $command == @(cm|dq|ft) ]]; then
                command+=" ${COMP_WORDS[i]}"
                break
            fi
            command=${COMP_WORDS[i]}
            [[ $command == @(cm|dq|ft) ]] || break
        fi
    done
    COMPREPLY=()
    case $command in
        '') options='send listen request reply run cm dq ft stats demo daemon doctor help -h --help --version' ;;
        send) options="-h --help -n --count --csv --json-file --rate $bus" ;;
        listen) options="-h --help -n --count --csv --json --share --timeout $bus" ;;
        request) options="-h --help -n --count --csv --json --json-file --rate --timeout $bus" ;;
        reply) options="-h --help -n --count --csv --echo --json --quiet --share --timeout $bus" ;;
        run) options="-h --help -e --execute $bus" ;;
        cm) options='-h --help send resume listen review verify export demo' ;;
        'cm send') options="-h --help -n --count --csv --durability --expire --json --json-file --ledger --listener --name --rate --timeout $bus" ;;
        'cm listen') options="-h --help -n --cancel --count --csv --durability --json --ledger --name --only-new --timeout $bus" ;;
        'cm resume') options="-h --help --durability --json --ledger --name --timeout $bus" ;;
        'cm demo') options='-h --help --kill-every --rate --seconds --timeout' ;;
        'cm verify') options='-h --help --json' ;;
        'cm export') options='-h --help' ;;
        'cm review') options='-h --help --json --ledger --name' ;;
        dq) options='-h --help work submit status' ;;
        'dq work') options="-h --help -n --activation --complete-time --count --grace --heartbeat --pause --quiet --reassignments --scheduler-weight --tasks --timeout --weight $bus" ;;
        'dq submit') options="-h --help -n --count --csv --durability --json-file --ledger --name --rate --timeout $bus" ;;
        'dq status') options="-h --help -n --count --json --timeout --watch $bus" ;;
        ft) options='-h --help join watch' ;;
        'ft join') options="-h --help --activation --exec --goal --grace --heartbeat --json --preparation --timeout --weight $bus" ;;
        'ft watch') options="-h --help --json --lost --timeout $bus" ;;
        stats) options="-h --help -n --answer --count --json --timeout --watch $bus" ;;
        demo) options="-h --help --timeout --seconds --stats $bus" ;;
        daemon) options='-h --help -p --port --max-payload --timeout --seconds --server' ;;
        doctor) options="-h --help --json $bus" ;;
        help) options='-h --help send listen request reply run cm dq ft stats demo daemon doctor help' ;;
        *) return ;;
    esac
    case $before in
        --csv | --json-file | --ledger | --trust | --identity | --password-file | --server | --exec) _quorl_files "$word"; return ;;
        --durability) mapfile -t COMPREPLY < <(compgen -W 'process power' -- "$word"); return ;;
        --daemon) mapfile -t COMPREPLY < <(compgen -W 'nats:// tls://' -- "$word"); return ;;
        --service | --network | --user | --name | --share | --listener | --expire | --count | --tasks | --weight | --scheduler-weight | --complete-time | --rate | --timeout | --watch | --seconds | --kill-every | --port | --max-payload | --activation | --goal | --grace | --heartbeat | --lost | --preparation) return ;;
        --execute | -n | -e | -p) return ;;
    esac
    if [[ $command == @(run|cm verify|cm export|dq work) && $word != -* ]]; then
        _quorl_files "$word"
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}

_quorl_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

complete -F _quorl quorl

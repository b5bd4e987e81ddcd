# Completion of zelpc for bash.
_zelpc() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]}
    local network="--from --udp-port --name --json --help" gateway="--gateway --token-file"
    COMPREPLY=()
    case $before in
    --password-file | --token-file | --config)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    --save)
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
        ;;
    --from | --udp-port | --name | --to | --seconds | --gateway | --delivery | --serial | --patient | --since | --until)
        return
        ;;
    esac
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "scan info register unregister watch push decode gateway queue --help --version" -- "$word")
    elif [[ $word == -* ]]; then
        local options
        case $command in
        scan) options="--to --seconds $network" ;;
        info) options=$network ;;
        register) options="--take-over --password-file $network" ;;
        unregister) options="--force --password-file $network" ;;
        watch) options="--save --take-over --password-file $gateway $network" ;;
        push) options="--when-asked --take-over --password-file $gateway $network" ;;
        decode) options="--json --help" ;;
        gateway) options="--config --check --help" ;;
        queue) options="$gateway --json --help" && case ${COMP_WORDS[2]} in
            show) options+=" --waiting" ;;
            again) options+=" --delivery --serial --patient --since --until --all" ;;
            esac ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    elif [ "$command" = queue ] && [ "$COMP_CWORD" -eq 2 ]; then
        mapfile -t COMPREPLY < <(compgen -W "list show again drop" -- "$word")
    elif [ "$command" = push ] && [ "$COMP_CWORD" -gt 2 ]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
    elif [ "$command" = decode ]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -o filenames -F _zelpc zelpc

# packaging/tavu.bash - completion of the command tavu for bash: subcommands, options, ports, files, interfaces.
# SPDX-License-Identifier: MIT

# The serial ports in a folder, of those on which a module can be.
_tavu_ports() {
    local path
    for path in "$1"/tty{CAN,USB,AMA,ACM}[0-9]* "$1"/{rfcomm,ircomm,cuau,cuaU,serusb}[0-9]*; do
        [[ ! -e $path ]] || echo "${path##*/}"
    done
}

# The CAN interfaces of the system: those of the kernel's type 280.
_tavu_interfaces() {
    local type
    for type in /sys/class/net/*/type; do
        [[ $(<"$type") != 280 ]] || basename "${type%/type}"
    done
}

# Values of an option; fails for one without.
_tavu_values() {
    case $1 in
    -b | --bitrate) echo 5 10 20 50 100 125 250 400 500 800 1000 ;;
    -f | --fd) echo 2 4 5 6 8 10 ;;
    -c | --channel) echo 1 2 ;;
    --stamp) echo host module delta ;;
    --id | --length | --data) echo random count ;;
    --log | --pcap | -n | --count | --time | -g | --gap | --seed | --speed | --loop | --map | --accept | --range) ;;
    *) return 1 ;;
    esac
}

_tavu() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} subcommand="" words=() i
    local rates="--bitrate --fd" setup="--bitrate --fd --listen --errors --accept --range"
    local -A options=(
        [list]="--json"
        [dump]="$setup --log --pcap --count --time --stamp --stats --quiet"
        [send]="$rates --channel"
        [gen]="$rates --channel --count --gap --id --length --data --extended --brs --seed"
        [play]="$rates --speed --loop --map --strict"
        [config]=""
        [bridge]="$setup --once")
    COMPREPLY=()
    # Of --log=FILE and 1:123/7FF the shell makes three words.
    [[ $word != = ]] || word=""
    [[ $before != = ]] || before=${COMP_WORDS[COMP_CWORD - 2]}
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        -*)
            ! _tavu_values "${COMP_WORDS[i]}" >/dev/null || i=$((i + 1))
            [[ ${COMP_WORDS[i]} != = ]] || i=$((i + 1))
            ;;
        :) i=$((i + 1)) ;;
        *) [[ -n $subcommand ]] && words+=("${COMP_WORDS[i]}") || subcommand=${COMP_WORDS[i]} ;;
        esac
    done
    local files=false choice="" values
    if values=$(_tavu_values "$before"); then
        choice=$values
        [[ $before != --log && $before != --pcap ]] || files=true
    elif [[ $word == -* ]]; then
        choice="--help ${options[${subcommand:-config}]-}"
        [[ -n $subcommand ]] || choice+=" --version"
    elif [[ -z $subcommand ]]; then
        choice=${!options[*]}
    else
        case $subcommand:${#words[@]} in
        dump:0 | send:0 | gen:0) choice=$(_tavu_ports /dev) ;;
        play:0) choice=$(_tavu_ports /dev) files=true ;;
        play:1) files=true ;;
        config:0) choice="show export import $(_tavu_ports /dev)" ;;
        config:*)
            case ${words[-1]} in
            export | import) files=true ;;
            show) ;;
            *) ((${#words[@]} > 1)) || choice="show export import" ;;
            esac
            ;;
        bridge:0) choice="$(_tavu_ports /dev) $(_tavu_interfaces)" ;;
        bridge:*) choice=$(_tavu_interfaces) ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$choice" -- "$word")
    if $files; then
        compopt -o filenames 2>/dev/null
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$word")
    fi
}

complete -F _tavu tavu

# shellcheck shell=bash
# What bash completes on the command line of vortan-transfer.

# _vortan_transfer_offer WORDS CURRENT: those of the words that begin like the current one.
_vortan_transfer_offer() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

# The bytes of a file are named by an @ before it.
_vortan_transfer_data() {
    compopt +o default
    # bash may have put a backslash before the @ that it has inserted.
    local name=${1#\\} index
    if [[ $name == @* ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "${name#@}")
        # With the @ before it, bash does not recognise a folder.
        for index in "${!COMPREPLY[@]}"; do
            if [[ -d ${COMPREPLY[index]} ]]; then
                COMPREPLY[index]+=/
                compopt -o nospace
            fi
            COMPREPLY[index]=@${COMPREPLY[index]}
        done
    fi
}

# Called with the program's name and the word to be completed.
_vortan_transfer() {
    # bash takes the = and @ in --handler=curl and @FILE for words of their own.
    local current=$2 before=$((COMP_CWORD - 1))
    while [[ ${COMP_WORDS[before]} == +([=@]) ]]; do
        before=$((before - 1))
    done

    case ${COMP_WORDS[before]} in
    -X | --method) _vortan_transfer_offer 'GET HEAD POST PUT' "$current" ;;
    --handler) _vortan_transfer_offer 'session curl file vendor' "$current" ;;
    --parallel-max) _vortan_transfer_offer '1 2 3 4' "$current" ;;
    --http-version) _vortan_transfer_offer '1.0 1.1 2' "$current" ;;
    -d | --data) _vortan_transfer_data "$current" ;;
    -o | --output | --trace | --trace-plot | -T | --upload-file | --input-file | --cacert | --cert | --key) ;;
    --sha256-file) ;;
    --output-dir | --capath)
        compopt +o default -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        ;;
    -H | --header | -A | --user-agent | -u | --user | --random-delay | --fixed-delay | --connect-timeout | \
        --max-time | --silence | --retry | --retry-delay | --max-redirs | --max-filesize | --sha256 | \
        --resource | --query | --timeout | --option??)
        compopt +o default
        ;;
    *)
        [[ $current != -* ]] || _vortan_transfer_offer '
            -h --help --version -X --method -I --head -H --header -A --user-agent -d --data -T
            --upload-file --input-file --parallel-max --random-delay --fixed-delay --handler -o
            --output -O --remote-name --output-dir -c --continue --if-changed -i --include --no-fail
            --segmented --plain --connect-timeout --max-time --silence --retry --retry-delay
            --max-redirs --max-filesize --cacert --capath -k --insecure --cert --key -u --user
            --sha256 --sha256-file --json --trace --trace-plot -q -s --quiet --silent -v --verbose
            --resource --query --http-version --self-signed --timeout --verbose-wrapper --option20
            --option21 --option27 --option30 --option31 --option32
            ' "$current"
        ;;
    esac
}

# Names of files are what bash completes by itself, where nothing is offered.
complete -o default -F _vortan_transfer vortan-transfer

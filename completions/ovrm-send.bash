# Completion of ovrm-send(1) for bash.
_ovrm_send() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local long='--server= --port= --from= --to= --each --subject= --body= --body-file= --utf8 --html=
        --replace --attach= --attach-temp= --split --auth= --auth-optional --pop-before= --pop-wait=
        --pop-timeout= --user= --password-file= --password-env= --prepared= --prepared-header=
        --prepared-raw --timeout-greeting= --timeout-mail= --timeout-rcpt= --timeout-data=
        --timeout-block= --timeout-end= --dry-run --check-config --verbose --quiet --help --version'

    # "--option=value" arrives as three words: bash breaks words at "=".
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = && $COMP_CWORD -ge 2 ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $prev in
        -F | -a | --body-file | --html | --attach | --attach-temp | --password-file | --prepared | \
            --prepared-header)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            ;;
        -S | --server | --pop-before)
            mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur")
            ;;
        --auth)
            mapfile -t COMPREPLY < <(compgen -W 'cram-md5 plain login any' -- "$cur")
            ;;
        --password-env)
            mapfile -t COMPREPLY < <(compgen -e -- "$cur")
            ;;
        *)
            [[ $cur == -* ]] || return
            mapfile -t COMPREPLY < <(compgen -W "$long" -- "$cur")
            [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
            ;;
    esac
}
complete -F _ovrm_send ovrm-send

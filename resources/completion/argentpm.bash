# bash completion of argentpm: commands, options, user names and backup copies.

_argentpm_databases_opt() {
    # Repeat a --databases option of the line being completed, so that users are
    # listed from the same folder.
    local i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case "${COMP_WORDS[i]}" in
            --databases) printf '%s\n' --databases "${COMP_WORDS[i + 1]}" ;;
            --databases=*) printf '%s\n' "${COMP_WORDS[i]}" ;;
        esac
    done
}

_argentpm() {
    local cur prev
    cur="${COMP_WORDS[COMP_CWORD]}"
    prev="${COMP_WORDS[COMP_CWORD - 1]}"
    local commands="users add-user passwd delete-user ls show mkdir add rename mv rm edit field totp
        move-note-fields find clip generate backup merge backups restore delete-backup install-portable import export health browser help"
    local common="--databases --password-stdin --yes --help --version"

    case "$prev" in
        --databases | install-portable)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            return ;;
        --bold)
            mapfile -t COMPREPLY < <(compgen -W "on off" -- "$cur")
            return ;;
        --field)
            [ "${COMP_WORDS[1]}" = edit ] && return
            mapfile -t COMPREPLY < <(compgen -W "title login password description" -- "$cur")
            return ;;
        --format)
            mapfile -t COMPREPLY < <(compgen -W "keepass-xml keepassxc-csv bitwarden-json browser-csv csv xml" -- "$cur")
            return ;;
        -o | --output)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            return ;;
        --title | --login | --desc | --generate | --color | --into | --map | --folder | --url | --totp | \
            --hidden-field | --visible-field | --remove-field | --older-than)
            return ;;
    esac

    # The command is the first word that is neither an option nor an option's value.
    local i cmd="" argn=0
    for ((i = 1; i < COMP_CWORD; i++)); do
        case "${COMP_WORDS[i]}" in
            --databases | --title | --login | --desc | --generate | --color | --bold | --field | \
                --format | --into | --map | --folder | -o | --output | --url | --totp | --hidden-field | \
                --visible-field | --remove-field | --older-than) ((i++)) ;;
            -*) ;;
            *) if [ -z "$cmd" ]; then cmd="${COMP_WORDS[i]}"; else ((argn++)); fi ;;
        esac
    done

    if [[ "$cur" == -* ]]; then
        local own=""
        # Each command's own options, as 'argentpm COMMAND --help' lists them.
        case "$cmd" in
            users | ls | backups) own="--json" ;;
            show) own="--field --json --show-protected" ;;
            clip) own="--field" ;;
            add) own="--title --login --desc --generate --ask-password --url --totp --field --hidden-field
                --visible-field --remove-field" ;;
            edit) own="--title --login --desc --generate --ask-password --color --bold --url --totp
                --field --hidden-field --visible-field --remove-field" ;;
            find) own="--titles-only --case-sensitive --json" ;;
            import) own="--format --into --map" ;;
            export) own="--format --folder --output" ;;
            health) own="--older-than --json" ;;
            browser) own="--browser --take-over" ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$common $own" -- "$cur")
        return
    fi
    if [ -z "$cmd" ]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur")
        return
    fi
    local dbopt
    mapfile -t dbopt < <(_argentpm_databases_opt)
    case "$cmd" in
        help)
            [ "$argn" -eq 0 ] && mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur") ;;
        passwd | delete-user | ls | show | mkdir | add | rename | mv | rm | edit | field | totp | \
            move-note-fields | find | clip | backup | merge | import | export | health)
            if [ "$cmd" = field ] && [ "$argn" -eq 2 ]; then
                mapfile -t COMPREPLY < <(compgen -W "url totp title login password description" -- "$cur")
            elif [ "$argn" -eq 0 ]; then
                local IFS=$'\n'
                mapfile -t COMPREPLY < <(compgen -W "$(argentpm "${dbopt[@]}" users 2>/dev/null)" -- "$cur")
            elif [ "$cmd" = merge ]; then
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            elif [ "$cmd" = import ] && [ "$argn" -eq 1 ]; then
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            fi ;;
        browser)
            [ "$argn" -eq 0 ] && mapfile -t COMPREPLY < <(compgen -W "setup status remove" -- "$cur") ;;
        restore | delete-backup)
            if [ "$argn" -eq 0 ]; then
                local IFS=$'\n'
                mapfile -t COMPREPLY < <(compgen -W "$(argentpm "${dbopt[@]}" backups 2>/dev/null |
                    sed 's/ Date: .*//')" -- "$cur")
            fi ;;
    esac
}

complete -F _argentpm argentpm

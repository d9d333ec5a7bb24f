# Completion of the command kosc in bash. Asks the command itself, so that it knows what this version knows.

# The words of a help section that may follow: subcommands, or options in their long form.
# `help` and `version` are none of the former.
_kosc_subcommands() { "$1" --help 2> /dev/null | sed -n '/^Subcommands:/,$ s/^  \([a-z][a-z]*\).*/\1/p'; }
_kosc_options() { "${@}" --help 2> /dev/null | sed -n 's/^  \(-[^ ]*,\)\{0,1\}\(--[a-z-]*\).*/\2/p'; }
_kosc_bands() { "$1" info 2> /dev/null | sed -n '/^bands/,$ s/^  \([a-z][a-z-]*\) .*/\1/p'; }

_kosc() {
    local command=$1 current=$2 word subcommand=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* || $word == help ]] || { subcommand=$word; break; }
    done
    if [[ ${COMP_WORDS[COMP_CWORD-1]} == --band ]]; then
        case $subcommand in
            decode | listen) word="all wide" ;;
            encode | send) word=wide ;;
            *) word= ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$(_kosc_bands "$command") $word" -- "$current")
        return
    fi
    case $current in
        -*) mapfile -t COMPREPLY < <(compgen -W "$(_kosc_options "$command" ${subcommand:+"$subcommand"})" -- "$current") ;;
        *)
            COMPREPLY=()
            if [[ -z $subcommand ]]; then
                mapfile -t COMPREPLY < <(compgen -W "$(_kosc_subcommands "$command") help version" -- "$current")
            fi
            ;; # otherwise file names, as -o default says
    esac
}
complete -o default -F _kosc kosc

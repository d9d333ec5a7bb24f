#!/bin/bash
# The man pages and the shell completion know what the command's own help knows: manual.sh KOSC SOURCE_TREE
set -euo pipefail
kosc=$1 source=$2 wrong=0
complain() { echo "$*"; wrong=1; }

help_words() { "$kosc" "$@" --help | grep -oE -- '--[a-z][a-z-]*' | sort -u; }
subcommands=$("$kosc" --help | sed -n '/^Subcommands:/,$ s/^  \([a-z]\{1,\}\) .*/\1/p')
[ "$(wc -w <<< "$subcommands")" -ge 3 ] || complain "no subcommands found in kosc --help"
for subcommand in "" $subcommands; do
    page=$source/docs/man/kosc${subcommand:+-$subcommand}.1.scd
    [ -f "$page" ] || { complain "no $page"; continue; }
    [ -z "$subcommand" ] || grep -q "^\*kosc-$subcommand\*(1)$" "$source/docs/man/kosc.1.scd" || complain "kosc.1: no $subcommand"
    for option in $(help_words ${subcommand:+"$subcommand"}); do
        grep -qF -- "*$option*" "$page" || complain "$page: no $option"
    done
    while read -r option; do
        help_words ${subcommand:+"$subcommand"} | grep -qx -- "$option" || complain "$page: $option is no option"
    done < <(grep -E '^\*-' "$page" | grep -oE -- '--[a-z-]+')
done

# Every key of what the command prints as JSON.
for subcommand in info decode inspect; do
    recording=$([ $subcommand = info ] || echo -)
    for key in $("$kosc" encode Hi -o - | "$kosc" $subcommand --json $recording | grep -oE '"[a-z_]+":' | tr -d '":'); do
        grep -qF -- "_${key}_" "$source/docs/man/kosc-$subcommand.1.scd" || complain "kosc-$subcommand.1: no key $key"
    done
done

. "$source/tools/kosc/kosc.bash"
# What completion offers for a line whose last word is being typed.
offered() {
    COMP_WORDS=("$kosc" "$@") COMP_CWORD=$#
    _kosc "$kosc" "${*: -1}" "$kosc"
    echo "${COMPREPLY[*]}"
}
expect() { [ "$1" = "$2" ] || complain "completion offers '$1' instead of '$2'"; }
expect "$(offered enc)" "encode"
expect "$(offered "" | tr ' ' '\n' | sort)" "$(printf '%s\nhelp\nversion' "$subcommands" | sort)"
expect "$(offered help dec)" "decode"
expect "$(offered decode --js)" "--json"
expect "$(offered --vers)" "--version"
expect "$(offered encode -o x.wav --he)" "$(printf -- '--help\n--hex' | tr '\n' ' ')"
expect "$(offered decode rec)" ""
expect "$(offered encode --band n)$(offered encode --band al)$(offered decode --band al)" "near-ultrasonicall"
exit $wrong

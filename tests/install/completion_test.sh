#!/usr/bin/env bash
# completion_test.sh SOURCE TAVCFG: what bash and zsh propose for command lines. Their own part of it, matching words
# and drawing lists, is left out for zsh.
set -euo pipefail

source "$1/tools/completion/tavcfg"
export COMPLETION=$1/tools/completion/_tavcfg TAVCFG=$2

in_bash() {
    COMP_WORDS=("$TAVCFG" "$@") COMP_CWORD=$#
    _tavcfg
    echo "${COMPREPLY[*]}"
}

in_zsh() {
    zsh -f -c '
        _describe() { print -r -- ${reply%%:*} }
        _files() { print }
        words=($TAVCFG "$@") CURRENT=$#words PREFIX=$words[-1]
        source $COMPLETION' zsh "$@"
}

# expect SHELL PATTERN WORD...: what the shell proposes for the last word; nothing stands for files.
expect() {
    local got=$("in_$1" "${@:3}")
    # shellcheck disable=SC2053 # a pattern
    [[ $got == $2 ]] || { echo "FAILED: $1 proposes '$got' for '${*:3}', not '$2'" >&2 && exit 1; }
}

expect bash 'show set schema' s
for shell in bash zsh; do
    expect $shell 'info *show *rekey' ''
    expect $shell 'start stop show' history ''
    expect $shell '*--limit --format*' show --
    expect $shell '*--context' passwd verify store.dat --
    expect $shell '' show history ''
done
[ "$(complete -p tavcfg)" = 'complete -o default -F _tavcfg tavcfg' ]

#!/usr/bin/env bash
# examples_test.sh SERVER TAVCFG: each command's help has two examples of it, which work where the files that they name
# are. SERVER is the program of a NATS server; without one, what needs it is left out.
set -euo pipefail

server=$1
tavcfg=$2
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT
export TAV_WORK_PATH=$work TAV_KEY_FILE=$work/tav.key LC_ALL=C.UTF-8
failed=0
tavcfg() { "$tavcfg" "$@"; }
export -f tavcfg
export tavcfg

# Starts the server that stands for the one in the examples, and finds its URL.
start_server() {
    "$server" -a 127.0.0.1 -p -1 -js -sd "$work/server" --ports_file_dir "$work" -l "$work/server.log" &
    until url=$(grep -so 'nats://[0-9.:]*' "$work/nats-server_$!.ports"); do
        kill -0 $!
        sleep 0.05
    done
}

# Makes the files that the examples name, in the folder where we are.
make_files() {
    tavcfg add routers.dat --vs 0 --class 13 14=5 15=1 18=192.0.2.1 19=70
    tavcfg history start routers.dat
    tavcfg checkpoint routers.dat good
    tavcfg add routers.dat --vs 0 --class 13 14=6 15=2 19=5
    cp routers.dat other.dat
    tavcfg set other.dat --vs 0 --class 13 14=6 19=6
    (cat other.dat && printf x) >damaged.dat
    tavcfg export other.dat >routers.json
    tavcfg import users.dat routers.json --refer routers.dat
    echo 'add 0 13 14=7' >lab.txt
    echo '{"13": {"name": "route"}}' >routers.dat.names.json
    echo 'Correct-h0rse' | tavcfg passwd hash | tee admin.form >old.forms
    echo 'another one' >secret.txt
    tavcfg encrypt --context radius <secret.txt | tee secret >texts
    cp "$TAV_KEY_FILE" tav.key.old
}

# try COMMAND...: runs the examples of a command, in a folder of their own, and goes on to its subcommands.
try() {
    local help examples example status limit word
    help=$(tavcfg "$@" --help)
    mapfile -t examples < <(sed -n '/^Examples:/,/^$/ s/^  //p' <<<"$help")
    [ "${#examples[@]}" -eq 2 ] || { echo "FAILED: $* --help has ${#examples[@]} examples" && failed=1; }
    rm -rf "$work/here"
    cp -r "$work/files" "$work/here"
    for example in "${examples[@]}"; do
        [[ -n $server || $example != *nats://* ]] || continue
        status=0
        limit=60
        [[ $example != *watch* ]] || limit=1
        (cd "$work/here" && timeout "$limit" bash -c "${example/nats:\/\/10.0.0.1:4222/${url:-}}" <<<'Correct-h0rse') \
            >"$work/log" 2>&1 || status=$?
        case "$example: $status" in
        *"tavcfg $*"*": 0" | "tavcfg diff"*": 1") ;;          # 1: different, as they are
        "tavcfg passwd check --history"*": 1") ;;              # the password is one of the last
        "tavcfg watch"*": 124" | *"--watch: 124") ;;           # it would wait for ever
        *) echo "FAILED: $example: $status" && cat "$work/log" && failed=1 ;;
        esac
    done
    for word in $(sed -n '/^Subcommands:/,/^$/ s/^  \([a-z]*\) .*/\1/p' <<<"$help"); do
        try "$@" "$word"
    done
}

[ -z "$server" ] || start_server
mkdir "$work/files"
(cd "$work/files" && make_files >/dev/null 2>&1)
for command in $(tavcfg --help | sed -n '/^Subcommands:/,/^$/ s/^  \([a-z]*\) .*/\1/p'); do
    try "$command"
done
exit "$failed"

#!/usr/bin/env bash
# check_scripts.sh SCRIPTS: what the scripts say to somebody who asks for help, mistypes, or may install
# nothing. Builds nothing.
set -euo pipefail
scripts="$(cd "$1" && pwd)"
directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT

# expect STATUS TEXT COMMAND...: what a command ends with, and a part of what it says.
expect() {
    local status="$1" text="$2" result=0 output
    shift 2
    output="$("$@" 2>&1)" || result=$?
    [ "$result" -eq "$status" ] && [[ "$output" == *"$text"* ]] && return 0
    printf '%s: expected %d and "%s", got %d and\n%s\n' "$*" "$status" "$text" "$result" "$output" >&2
    exit 1
}

for script in "$scripts"/*.sh; do
    first="$(sed -n '2s/^# //p' "$script")"
    [ -n "$first" ] || { echo "$script does not say what it is for" >&2; exit 1; }
    expect 0 "$first" bash "$script" --help
    expect 0 "$first" bash "$script" -h
done
expect 2 "there is no option --fast; usage: " bash "$scripts/demo.sh" --fast
expect 2 "there is no picture missing.jpg; usage: " bash "$scripts/demo.sh" missing.jpg
expect 2 "there is no preset fast; there are release, " bash "$scripts/test.sh" fast
expect 2 "there is no library nowhere.so" env TNROBOT_TEST_PRELOAD=nowhere.so bash "$scripts/test.sh"

# A machine with little on it: an ordinary user, no sudo, and packages that dpkg-query is told to know.
programs="$directory/programs"
mkdir "$programs"
for program in bash dirname env grep nproc; do
    ln -s "$(command -v "$program")" "$programs"
done
printf '#!/bin/sh\necho 1000\n' >"$programs/id"
# shellcheck disable=SC2016  # for the program that is written
printf '#!/bin/sh\nfor last; do :; done\ncase "$INSTALLED" in all|*" $last "*) echo install ok installed ;; esac\n' \
    >"$programs/dpkg-query"
chmod +x "$programs/id" "$programs/dpkg-query"
set_up() { env -i PATH="$programs" INSTALLED="$1" bash "$scripts/setup.sh" "$2"; }

expect 0 "" set_up all bench
expect 1 "As the superuser: apt-get update && apt-get install --no-install-recommends ninja-build libjpeg62-turbo-dev" \
    set_up " g++ cmake " build
needed=" g++ cmake ninja-build libjpeg62-turbo-dev libbenchmark-dev python3 python3-matplotlib valgrind "
expect 0 "left out, as there is no sudo to install them: libmimalloc-dev " set_up "$needed" bench

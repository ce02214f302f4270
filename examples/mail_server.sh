# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# For the scripts of examples that need a local mail server: what it needs is installed if it is missing.
example=$(basename "$0" .sh)
here=$(realpath "$(dirname "${BASH_SOURCE[0]}")")
python=/usr/bin/python3 # Debian's, which finds Debian's modules
$python -c 'import aiosmtpd' 2>/dev/null || {
    [ -x "$here/../packaging/packages.sh" ] || {
        echo "$example: please install python3-aiosmtpd" >&2
        exit 1
    }
    "$here/../packaging/packages.sh" example
}

# shellcheck disable=SC2317 # a trap calls it
clean_up() {
    trap - EXIT INT TERM
    [ ${#helpers[@]} -eq 0 ] || kill "${helpers[@]}" 2>/dev/null || true
    wait
    rm -rf "$folder"
}

# The server prints what arrives. Sets $folder, for the example's own files, $port, and $helpers, the processes that
# end with the script.
start_mail_server() {
    folder=$(mktemp -d)
    helpers=()
    trap clean_up EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    mkfifo "$folder/sink"
    setpriv --pdeathsig TERM $python "$here/mail_sink.py" "$folder/mails" >"$folder/sink" &
    helpers+=($!)
    exec 3<"$folder/sink"
    local word
    read -r word port <&3 || word=
    [ "$word" = READY ] || { echo "$example: the mail server did not start (${port:-})" >&2; exit 1; }
    cat <&3 & # shows the messages that arrive
}

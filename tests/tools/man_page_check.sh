#!/usr/bin/env bash
# The hand-written manual page keeps up with the tool: every option that the help of qellog
# and of each command shows is documented in it, each command has its section, its title
# line names the tool's version, and (where man is installed) it renders without a warning.
#   man_page_check.sh QELLOG MAN_PAGE
set -uo pipefail
qellog=$1
page=$2
failed=0
for command in "" cat follow stats prune; do
    # shellcheck disable=SC2086  # no command: the tool's own help
    help=$("$qellog" $command --help) || { echo "qellog $command --help failed"; failed=1; }
    if [ -n "$command" ] && ! grep -q "^\.SH ${command^^}\$" "$page"; then
        echo "no section for qellog $command"
        failed=1
    fi
    # Long options wherever the help names them, short ones where it lists them; in the page
    # a dash is written \-, and a short option is followed by a space or a font change.
    for option in $(grep -oE -- '--[a-z][a-z-]*' <<<"$help" | sort -u); do
        if ! grep -qF -- "${option//-/\\-}" "$page"; then
            echo "qellog $command --help shows $option; the manual page does not document it"
            failed=1
        fi
    done
    for option in $(grep -oE -- '^ +-[a-zA-Z],' <<<"$help" | tr -d ' ,-' | sort -u); do
        if ! grep -qE -- "\\\\-$option([ \\\\]|\$)" "$page"; then
            echo "qellog $command --help shows -$option; the manual page does not document it"
            failed=1
        fi
    done
done
version=$("$qellog" --version | sed -n 's/^qellog //p')
if ! grep -q "^\.TH QELLOG 1 .* \"qel $version\"" "$page"; then
    echo "the manual page's title line does not name version $version"
    failed=1
fi
if command -v man >/dev/null 2>&1; then
    warnings=$(MANWIDTH=80 LC_ALL=C.UTF-8 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null)
    if [ -n "$warnings" ]; then
        echo "the manual page renders with warnings:"
        echo "$warnings"
        failed=1
    fi
fi
exit $failed

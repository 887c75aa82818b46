#!/usr/bin/env bash
# Usage: tests/package/check.sh PACKAGE_DIR REFERENCE_TOOL
# Unpacks the .deb files in PACKAGE_DIR into a directory of their own, as dpkg
# would install them, and checks what they hold: apt accepts them on this
# system, the packaged tools with the packaged library render the example as
# REFERENCE_TOOL (the build's own) does, the man pages open, bash completes the
# options, and lintian finds no error. Prints lintian's warnings.
set -euo pipefail

packages=$(cd "$1" && pwd)
reference=$2
examples=$(cd "$(dirname "$0")/../../examples" && pwd)
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

fail() {
    echo "package check: $*" >&2
    exit 1
}

debs=("$packages"/*.deb)
[ ${#debs[@]} -eq 3 ] || fail "expected three packages in $packages, found ${#debs[@]}"
for deb in "${debs[@]}"; do
    dpkg-deb -f "$deb" Package Version Depends | sed 's/^/  /'
    dpkg -x "$deb" "$root"
done
apt-get install --simulate -qq "${debs[@]}" >/dev/null 2>&1 \
    || fail "apt-get would not install the packages: $(apt-get install --simulate -qq "${debs[@]}" 2>&1 | tail -3)"

library=$(find "$root" -name 'libtessivanetemplate*.so.3' -print -quit)
[ -n "$library" ] || fail "no library in the packages"
export LD_LIBRARY_PATH=$(dirname "$library")
ldd "$root/usr/bin/tessivane-template" | grep -qF "$library" \
    || fail "the packaged tool does not load the packaged library"

render() {
    (cd "$examples" && "$1" -r registry.json -r overrides.conf -R /etc/webshop -t hostname=shop-01 \
        -t workers=4 --comment-prefix '#' service.conf.tmpl)
}
[ "$(render "$root/usr/bin/tessivane-template")" = "$(LD_LIBRARY_PATH= render "$reference")" ] \
    || fail "the packaged tool renders the example differently"
"$root/usr/bin/tessivane-sync" --dry-run "$examples/sync/sync.toml" >/dev/null 2>&1 \
    || [ $? -eq 3 ] || fail "the packaged tessivane-sync cannot read the sync example"

for tool in tessivane-template tessivane-sync; do
    MANPATH="$root/usr/share/man" man -P cat $tool 2>/dev/null | grep -q "^NAME" \
        || fail "man $tool shows no page"
done

# What bash offers after "tessivane-template --" and a TAB.
completion=$(PATH="$root/usr/bin:$PATH" bash -c '
    source /usr/share/bash-completion/bash_completion
    source "$1/usr/share/bash-completion/completions/tessivane-template"
    COMP_LINE="tessivane-template --"; COMP_POINT=${#COMP_LINE}
    COMP_WORDS=(tessivane-template --); COMP_CWORD=1
    _tessivane_tools tessivane-template -- tessivane-template
    printf "%s\n" "${COMPREPLY[@]}"' bash "$root")
for option in --registry --strict --language; do
    grep -qx -- "$option" <<<"$completion" || fail "bash does not complete $option"
done

# lintian warns that it runs as root, which CI does; its findings go to standard output.
lintian --fail-on error "${debs[@]}" 2>/dev/null || fail "lintian reports errors"
echo "package check: the three packages install, render, document and complete"

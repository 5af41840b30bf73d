#!/usr/bin/env bash
# The package as a service: the alert rules pass promtool and their unit tests; the systemd units,
# as `cmake --install` makes them, pass systemd-analyze verify and keep a low exposure score; the
# Debian maintainer scripts do their work once, however often they run. Runs as any user and
# changes nothing outside its own scratch directory: the install goes to a scratch prefix, and the
# maintainer scripts run with stand-ins for the commands that would change the machine.
#   check-service.sh BUILD_DIR SOURCE_DIR PROMTOOL SYSTEMD_ANALYZE
set -euo pipefail
build=$1
source=$2
promtool=$3
systemd_analyze=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# expect WHAT EXPECTED ACTUAL: says what differs and counts it as a failure.
expect() {
    if [ "$2" != "$3" ]; then
        printf '%s:\n  expected: %s\n  actual:   %s\n' "$1" "$2" "$3"
        failed=1
    fi
}

echo "== alert rules"
out=$("$promtool" check rules "$source/tools/exporter/prometheus/ipmi-event-log.rules.yml" 2>&1) || true
expect "promtool check rules" "  SUCCESS: 5 rules found" "$(grep SUCCESS <<<"$out")"
out=$("$promtool" test rules "$source/tests/package/alert-rules.test.yml" 2>&1) || true
echo "$out"
expect "promtool test rules" "  SUCCESS" "$(grep -E '^ *(SUCCESS|FAILED)' <<<"$out")"

echo "== systemd units"
# Installed into a scratch prefix, the units name the tool and the files installed there, and
# their Documentation= names the manual page installed there.
cmake --install "$build" --component runtime --prefix "$work/prefix" >/dev/null
units=("$work/prefix/lib/systemd/system/ipmi-event-log-exporter.service"
    "$work/prefix/lib/systemd/system/ipmi-event-log-follow.service")
expect "the exporter's command" \
    "ExecStart=$work/prefix/bin/ipmi-event-log serve --config $work/prefix/etc/ipmi-event-log/config.yml --listen \${LISTEN_ADDRESS} --state-dir \${STATE_DIRECTORY}" \
    "$(grep '^ExecStart=' "${units[0]}")"
expect "follow's settings" "EnvironmentFile=$work/prefix/etc/default/ipmi-event-log-follow" \
    "$(grep '^EnvironmentFile=' "${units[1]}")"
# Their Documentation= is the manual page installed beside them; systemd-analyze would ask man(1)
# for it, which a minimal system has not, so the page is looked for here.
for unit in "${units[@]}"; do
    expect "$(basename "$unit")'s documentation" "Documentation=man:ipmi-event-log(1)" \
        "$(grep '^Documentation=' "$unit")"
done
[ -f "$work/prefix/share/man/man1/ipmi-event-log.1" ] ||
    expect "the manual page installed" "share/man/man1/ipmi-event-log.1" "none"
# systemd-analyze needs no running systemd for these: it reads the files, finds the programs they
# run, and says nothing when all is well.
out=$("$systemd_analyze" verify --man=no "${units[@]}" 2>&1) || out+=" (exit status $?)"
expect "systemd-analyze verify" "" "$out"
for unit in "${units[@]}"; do
    # --threshold makes the exit status say whether the score is above it; the line is shown.
    score=0
    out=$("$systemd_analyze" security --offline=yes --threshold=20 "$unit" 2>&1) || score=$?
    grep 'Overall exposure level' <<<"$out"
    expect "$(basename "$unit"): exposure at most 2.0" 0 "$score"
done

echo "== maintainer scripts"
# Stand-ins that keep the group and the ownership override in files of the scratch directory, and
# log each change they make.
state=$work/state
mkdir -p "$work/bin" "$state"
cat >"$work/bin/getent" <<'STUB'
#!/bin/sh
grep -qx "$2" "$STUB_STATE/groups" 2>/dev/null
STUB
cat >"$work/bin/groupadd" <<'STUB'
#!/bin/sh
echo "groupadd $*" >>"$STUB_STATE/log"
echo "$2" >>"$STUB_STATE/groups"
STUB
cat >"$work/bin/dpkg-statoverride" <<'STUB'
#!/bin/sh
case $1 in
--list) grep " $2\$" "$STUB_STATE/overrides" 2>/dev/null ;;
--update) echo "dpkg-statoverride $*" >>"$STUB_STATE/log"
    echo "$3 $4 $5 $6" >>"$STUB_STATE/overrides" ;;
--remove) echo "dpkg-statoverride $*" >>"$STUB_STATE/log"
    grep -v " $2\$" "$STUB_STATE/overrides" >"$STUB_STATE/kept" || true
    mv "$STUB_STATE/kept" "$STUB_STATE/overrides" ;;
esac
STUB
chmod +x "$work/bin"/*
run_script() {
    STUB_STATE=$state PATH="$work/bin:$PATH" sh "$source/cmake/debian/$1" "${@:2}"
}
run_script postinst configure
run_script postinst configure 0.1.0
expect "postinst, run twice" \
    "groupadd --system ipmi-event-log|dpkg-statoverride --update --add root ipmi-event-log 0640 /etc/ipmi-event-log/config.yml" \
    "$(paste -sd '|' "$state/log")"
expect "the override" "root ipmi-event-log 0640 /etc/ipmi-event-log/config.yml" \
    "$(cat "$state/overrides")"
: >"$state/log"
run_script prerm remove
run_script postrm remove
expect "prerm and postrm remove" "" "$(cat "$state/log")"
# A purge removes the services' state directories under /var/lib: here rm is a stand-in that
# logs, and the purge is not run unless the scripts would find the stand-in.
cat >"$work/bin/rm" <<'STUB'
#!/bin/sh
echo "rm $*" >>"$STUB_STATE/log"
STUB
chmod +x "$work/bin/rm"
if [ "$(PATH="$work/bin:$PATH" sh -c 'command -v rm')" != "$work/bin/rm" ]; then
    echo "rm's stand-in is not the one sh finds: the purge is not run"
    exit 1
fi
run_script postrm purge
run_script postrm purge
expect "postrm purge, run twice" \
    "dpkg-statoverride --remove /etc/ipmi-event-log/config.yml|rm -rf /var/lib/private/ipmi-event-log-exporter /var/lib/ipmi-event-log-exporter|rm -rf /var/lib/private/ipmi-event-log-follow /var/lib/ipmi-event-log-follow|rm -rf /var/lib/private/ipmi-event-log-exporter /var/lib/ipmi-event-log-exporter|rm -rf /var/lib/private/ipmi-event-log-follow /var/lib/ipmi-event-log-follow" \
    "$(paste -sd '|' "$state/log")"
expect "the override after the purge" "" "$(cat "$state/overrides")"

[ $failed = 0 ] && echo "all checks passed"
exit $failed

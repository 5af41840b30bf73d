#!/usr/bin/env bash
# The package as a service: the alert rules pass promtool and their unit tests. Runs as any user
# and changes nothing outside its own scratch directory.
#   check-service.sh SOURCE_DIR PROMTOOL
set -euo pipefail
source=$1
promtool=$2
failed=0

# expect WHAT EXPECTED ACTUAL: says what differs and counts it as a failure.
expect() {
    if [ "$2" != "$3" ]; then
        printf '%s:\n  expected: %s\n  actual:   %s\n' "$1" "$2" "$3"
        failed=1
    fi
}

echo "== alert rules"
out=$("$promtool" check rules "$source/tools/prometheus/ipmi-event-log.rules.yml" 2>&1) || true
expect "promtool check rules" "  SUCCESS: 5 rules found" "$(grep SUCCESS <<<"$out")"
out=$("$promtool" test rules "$source/tests/package/alert-rules.test.yml" 2>&1) || true
echo "$out"
expect "promtool test rules" "  SUCCESS" "$(grep -E '^ *(SUCCESS|FAILED)' <<<"$out")"

[ $failed = 0 ] && echo "all checks passed"
exit $failed

#!/bin/sh
# A process blocked in C_WaitForSlotEvent (pkcs11-tool's hotplug test) wakes up when another
# process unplugs a token with ostrel-token.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00004 --label "Stays" --pin 1234 >/dev/null
"$TOKEN_TOOL" init E2E00005 --label "Goes away" --pin 1234 >/dev/null

# x leaves the slot-list stage; the first return collects the event of the initial device count;
# the second return blocks in C_WaitForSlotEvent until the unplug; x ends the test.
output=$( (printf 'x\n\n'; sleep 1; printf '\n'; sleep 1; "$TOKEN_TOOL" unplug E2E00005 >/dev/null;
           sleep 3; printf 'x\n') | timeout 30 pkcs11-tool --module "$MODULE" --test-hotplug 2>&1 || true)
printf '%s\n' "$output"
events=$(printf '%s\n' "$output" | grep -c "Calling C_WaitForSlotEvent: event on slot 0x50000001" || true)
[ "$events" -eq 2 ] || fail "two slot events, got $events"
# After the second event the slot list holds the remaining token only.
after=$(printf '%s\n' "$output" | sed -n '/event on slot/h; /event on slot/!H; ${x;p}')
expect_in "$after" "Slot 0 (0x50000001): Stays"
expect_not_in "$after" "Goes away"
finish

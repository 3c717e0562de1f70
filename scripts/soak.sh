#!/usr/bin/env bash
# Builds and runs the soak program: a realistic mix of library work repeated for the given
# seconds (default 600), with the library set up as a host sets it up. Prints resident memory
# after warm-up and at the end and the deferred deletions still queued; exits non-zero when
# resident memory grew by more than 5% after warm-up or a round's own check failed.
# Usage: scripts/soak.sh [seconds] [more vela_soak options: --phases, --warmup, --limit-mib]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" "$root/build"
exec "$root/build/tools/soak/vela_soak" "${1:-600}" "${@:2}"

#!/usr/bin/env bash
# Installs what is missing, builds, and runs the project's command-line tool.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" "$root/build"
exec "$root/build/tools/vela/vela" "$@"

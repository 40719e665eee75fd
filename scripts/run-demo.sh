#!/usr/bin/env bash
# Sets everything up, builds, and plays the bundled default scenario.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
bash scripts/bootstrap.sh >&2
bash scripts/build.sh build none >&2
exec build/tools/tavro-demo "$@"

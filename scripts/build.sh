#!/usr/bin/env bash
# Configures and builds one flavour: scripts/build.sh DIR SANITIZER [extra cmake args...]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
dir="$1"; sanitize="$2"; shift 2
generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
cmake -S "$root" -B "$root/$dir" "${generator[@]}" -DTAVRO_SANITIZE="$sanitize" "$@" >/dev/null
cmake --build "$root/$dir" --parallel "$(nproc)"

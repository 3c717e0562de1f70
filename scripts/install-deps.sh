#!/usr/bin/env bash
# Installs what the build needs from Debian's packages; does nothing when all is there.
# Usage: scripts/install-deps.sh [more packages...]
set -euo pipefail
packages=(g++ cmake make pkg-config libboost-dev libpugixml-dev libgtest-dev libgmock-dev libbenchmark-dev libasound2-dev
  planetblupi-music-midi midicsv  # real MIDI files and a lister for the round-trip test
  jackd2 libjack-jackd2-dev libfluidsynth-dev timgm6mb-soundfont  # real-time output and rendering
  "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
fi

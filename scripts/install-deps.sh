#!/usr/bin/env bash
# Installs the Debian packages that building and testing Pellomar needs,
# only those that are missing. Works as root or through sudo.
set -euo pipefail

packages=(
  g++ make cmake ccache pkg-config clang libclang-rt-14-dev
  qtbase5-dev libqt5sql5-sqlite qtwebengine5-dev libqt5svg5-dev
  librsvg2-bin imagemagick
  xvfb xauth x11-utils fonts-dejavu-core fonts-noto-color-emoji
  dpkg-dev file desktop-file-utils
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if ((${#missing[@]})); then
  sudo=""
  [[ $(id -u) -eq 0 ]] || sudo="sudo"
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -q
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q "${missing[@]}"
fi

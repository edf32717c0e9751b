#!/usr/bin/env bash
# Makes the Debian package from the release build (build/release, built here
# when needed) and checks it as a user would: installs it with apt-get, runs
# the installed pellomar-cli and window, removes it and checks that its files
# are gone. Installing needs root; without it the script says so and stops.
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ $(id -u) -ne 0 ]]; then
  echo "skipped: not root"
  exit 0
fi
if dpkg-query -W -f='${Status}' pellomar 2>/dev/null | grep -q "install ok installed"; then
  echo "FAIL: pellomar is installed already; remove it first (apt-get remove pellomar)" >&2
  exit 1
fi

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

build=build/release
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)"
rm -f "$build"/pellomar_*.deb
(cd "$build" && cpack -G DEB >/dev/null)
debs=("$build"/pellomar_*.deb)
[[ ${#debs[@]} -eq 1 && -f ${debs[0]} ]] || fail "cpack made no pellomar_*.deb in $build"
deb=$(realpath "${debs[0]}")
version=$(dpkg-deb -f "$deb" Version)
arch=$(dpkg-deb -f "$deb" Architecture)
[[ $(basename "$deb") == "pellomar_${version}_${arch}.deb" ]] || fail "unexpected name $(basename "$deb")"
echo "== $(basename "$deb") =="
# Qt's SQLite driver is loaded as a plugin, which dpkg-shlibdeps cannot see.
dpkg-deb -f "$deb" Depends | grep -qw libqt5sql5-sqlite || fail "the package does not depend on libqt5sql5-sqlite"

# Whatever happens below, the package does not stay installed, and the
# window and its X server do not keep running.
window_pid=""
xvfb_pid=""
cleanup() {
  if [[ -n $window_pid ]]; then kill "$window_pid" 2>/dev/null || true; fi
  if [[ -n $xvfb_pid ]]; then kill "$xvfb_pid" 2>/dev/null || true; fi
  if dpkg-query -W -f='${Status}' pellomar 2>/dev/null | grep -q "install ok installed"; then
    apt-get remove -y -q pellomar >/dev/null
  fi
}
trap cleanup EXIT

# Recommends (xdg-utils) are left out so that the test adds nothing else to
# the machine; the checks below do not open links.
DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$deb" >/dev/null
mapfile -t files < <(dpkg -L pellomar)

# Every library the installed programs link comes from a package that
# installing pellomar brings in, so they run on a machine that has only
# what the package depends on.
closure=$(apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts \
  --no-breaks --no-replaces --no-enhances pellomar | grep -v '^ ' | tr -d '<>' | sort -u)
for exe in /usr/bin/pellomar-cli /usr/lib/pellomar/bin/pellomar; do
  if ldd "$exe" | grep "not found"; then fail "$exe misses libraries"; fi
  for lib in $(ldd "$exe" | awk '$3 ~ /^\// {print $3}'); do
    # /lib is /usr/lib; dpkg knows each file under one of the two names.
    owner=$(dpkg -S "$lib" 2>/dev/null || dpkg -S "${lib#/usr}" 2>/dev/null ||
      dpkg -S "/usr$lib" 2>/dev/null || true)
    [[ -n $owner ]] || fail "$exe links $lib, which no package holds"
    pkg=${owner%%:*}
    grep -qx "$pkg" <<<"$closure" || fail "$exe links $lib from $pkg, which pellomar does not depend on"
  done
done

[[ $(command -v pellomar-cli) == /usr/bin/pellomar-cli ]] || fail "pellomar-cli is not /usr/bin/pellomar-cli"
[[ $(command -v pellomar) == /usr/bin/pellomar ]] || fail "pellomar is not /usr/bin/pellomar"
out=$(pellomar-cli --version)
[[ $out == "pellomar-cli $version" ]] || fail "pellomar-cli --version printed '$out', not 'pellomar-cli $version'"
out=$(pellomar-cli scan samples/store) || fail "pellomar-cli scan samples/store ended with $?"
[[ $(tail -n 1 <<<"$out") == "17 messages in 10 folders" ]] ||
  fail "pellomar-cli scan samples/store ended with: $(tail -n 1 <<<"$out")"
echo "installed pellomar-cli: $(tail -n 1 <<<"$out")"
# The account names of samples/modern come from samples/Accounts/Accounts4.sqlite
# through Qt's SQLite driver.
out=$(pellomar-cli scan samples/modern 2>&1) || fail "pellomar-cli scan samples/modern ended with $?"
grep -qx "    Work (0)" <<<"$out" || fail "pellomar-cli scan samples/modern shows no account names: $out"
echo "installed pellomar-cli: account names of samples/modern shown"

# The window looks for its help page and plist one folder up from its real
# executable, in Resources.
exe=$(readlink -f /usr/bin/pellomar)
for f in PellomarHelp.html PellomarLink.plist; do
  [[ -f $(dirname "$exe")/../Resources/$f ]] || fail "$f is not in Resources beside $exe"
done
desktop=/usr/share/applications/pellomar.desktop
[[ -f $desktop ]] || fail "no $desktop"
if command -v desktop-file-validate >/dev/null; then
  desktop-file-validate "$desktop" || fail "$desktop is not valid"
fi
[[ $(sed -n 's/^Exec=//p' "$desktop") == pellomar ]] || fail "$desktop does not start pellomar"
icon=$(sed -n 's/^Icon=//p' "$desktop")
[[ -f /usr/share/icons/hicolor/256x256/apps/$icon.png ]] || fail "no 256x256 icon $icon.png"
[[ -f /usr/share/icons/hicolor/scalable/apps/$icon.svg ]] || fail "no scalable icon $icon.svg"

# The installed window, started through /usr/bin, on an X server of its own.
# It is still running after a few seconds and shows its window.
export QTWEBENGINE_DISABLE_SANDBOX=1 QTWEBENGINE_CHROMIUM_FLAGS=--disable-gpu QT_QPA_PLATFORM=xcb
display_file=$(mktemp)
Xvfb -displayfd 3 -screen 0 1600x1000x24 -nolisten tcp 3>"$display_file" 2>/dev/null &
xvfb_pid=$!
for _ in $(seq 50); do
  [[ -s $display_file ]] && break
  sleep 0.1
done
[[ -s $display_file ]] || fail "Xvfb did not start"
export DISPLAY=:$(head -n 1 "$display_file")
rm -f "$display_file"
log=$(mktemp)
pellomar >"$log" 2>&1 &
window_pid=$!
sleep 6
kill -0 "$window_pid" 2>/dev/null || fail "the installed window ended at start: $(cat "$log")"
[[ $(readlink "/proc/$window_pid/exe") == "$exe" ]] || fail "the window runs $(readlink "/proc/$window_pid/exe")"
windows=$(xwininfo -root -tree)
grep -q '"Pellomar"' <<<"$windows" || fail "the installed window shows no window named Pellomar"
echo "installed window: running after 6 s"
kill "$window_pid"
wait "$window_pid" 2>/dev/null || true
window_pid=""
kill "$xvfb_pid"
wait "$xvfb_pid" 2>/dev/null || true
xvfb_pid=""
rm -f "$log"

apt-get remove -y -q pellomar >/dev/null
if dpkg-query -W -f='${Status}' pellomar 2>/dev/null | grep -q "install ok installed"; then
  fail "pellomar is still installed after apt-get remove"
fi
for f in "${files[@]}"; do
  # Folders such as /usr/bin stay; everything the package put there goes.
  if [[ -d $f && ! -L $f ]]; then continue; fi
  if [[ -e $f || -L $f ]]; then fail "$f is still there after apt-get remove"; fi
done
[[ ! -e /usr/lib/pellomar ]] || fail "/usr/lib/pellomar is still there after apt-get remove"
echo "removed: no file of the package is left"
echo "package test passed"

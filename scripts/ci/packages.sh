#!/usr/bin/env bash
# Builds the Debian packages from an existing build (build/default by default), installs them with
# apt-get, builds the consumers against the installed packages through pkg-config and through
# find_package, and runs them and the installed tools. The packages are purged again at the end.
set -euo pipefail
cd "$(dirname "$0")/../.."
build="$(realpath "${1:-build/default}")"
sudo=()
if [[ $(id -u) -ne 0 ]]; then
  sudo=(sudo)
fi
names=(libkov-vesk0 libkov-vesk-dev kov-vesk-tools)

rm -rf "$build/packages"
(cd "$build" && cpack -G DEB)
for deb in "$build"/packages/*.deb; do
  echo "$(basename "$deb"): $(dpkg-deb -f "$deb" Depends)"
done

trap '"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq "${names[@]}" >/dev/null || true' EXIT
(cd "$build/packages" && "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq ./*.deb)

echo "--- consumers through pkg-config"
out="$build/packages/consumers"
mkdir -p "$out"
flags=(-std=c++17 -Wall -Wextra -Wpedantic -Werror)
# shellcheck disable=SC2046 # the flags are meant to split into words
g++ "${flags[@]}" tests/consumer/main.cpp -o "$out/consumer" \
  $(pkg-config --cflags --libs kov_drivers_lidar_vesk_control_interface)
"$out/consumer"
# shellcheck disable=SC2046
g++ "${flags[@]}" tests/consumer/transport_main.cpp -o "$out/transport_consumer" \
  $(pkg-config --cflags --libs kov_someip_transport)
"$out/transport_consumer"

echo "--- consumers through find_package"
cmake -S tests/consumer -B "$out/cmake" -DCMAKE_CXX_FLAGS="${flags[*]}" >/dev/null
cmake --build "$out/cmake" -j2
"$out/cmake/consumer"
"$out/cmake/transport_consumer"

echo "--- installed tools"
for tool in veskctl vesk-sensord; do
  [[ "$(command -v "$tool")" == /usr/bin/$tool ]]
  "$tool" --version
  man -w "$tool"
done
for table in SOMEIP_service_identifiers SOMEIP_method_event_identifiers SOMEIP_eventgroup_identifiers; do
  [[ -s /usr/share/kov_vesk/wireshark/$table ]]
done
ldd /usr/bin/veskctl | grep libkov_
! ldd /usr/bin/veskctl | grep -q 'not found'
veskctl --sensors 1 get mode

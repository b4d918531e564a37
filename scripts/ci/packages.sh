#!/usr/bin/env bash
# Builds the Debian packages from an existing build (build/default by default), checks them with
# lintian (any error or warning fails; info tags are shown), installs them with apt-get, builds the
# consumers against the installed packages through pkg-config and through find_package, and runs them,
# the installed tools and, when it was built, the Python module. The packages are purged at the end.
set -euo pipefail
cd "$(dirname "$0")/../.."
build="$(realpath "${1:-build/default}")"
sudo=()
if [[ $(id -u) -ne 0 ]]; then
  sudo=(sudo)
fi

rm -rf "$build/packages"
(cd "$build" && cpack -G DEB)
names=()
for deb in "$build"/packages/*.deb; do
  names+=("$(dpkg-deb -f "$deb" Package)")
  echo "$(basename "$deb"): $(dpkg-deb -f "$deb" Depends)"
done
# The library packages are named after their SONAMEs; the Python package exists when it was built.
for name in libkov-drivers-lidar-vesk-control-interface0 libkov-someip-transport0 libkov-vesk-dev kov-vesk-tools; do
  [[ " ${names[*]} " == *" $name "* ]] || { echo "no package $name among: ${names[*]}"; exit 1; }
done

echo "--- lintian"
lintian --fail-on error,warning --display-info "$build"/packages/*.deb

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
# The libraries are found through the loader's cache (the ldconfig trigger ran), not through a RUNPATH.
ldconfig -p | grep -F libkov_drivers_lidar_vesk_control_interface.so.0
ldconfig -p | grep -F libkov_someip_transport.so.0
# (`! command` would not stop a `set -e` script: the checks below fail explicitly.)
for program in /usr/bin/veskctl /usr/bin/vesk-sensord; do
  if readelf -d "$program" | grep -E 'RPATH|RUNPATH'; then
    echo "$program carries a library search path"
    exit 1
  fi
done
ldd /usr/bin/veskctl | grep libkov_
if ldd /usr/bin/veskctl | grep 'not found'; then
  exit 1
fi
veskctl --sensors 1 get mode

if [[ " ${names[*]} " == *" python3-kov-vesk "* ]]; then
  echo "--- installed Python module"
  (cd / && /usr/bin/python3 -c 'import kov_vesk; print(kov_vesk.__file__)')
fi

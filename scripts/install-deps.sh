#!/usr/bin/env bash
# Installs the Debian 12 packages that the build, the tools and the tests need, when they are missing.
set -euo pipefail

# libclang-rt-14-dev holds libFuzzer and clang's sanitizer runtimes (the fuzz targets of the clang build).
# libspdlog-dev is the peer of the logging benchmark; valgrind (callgrind) counts its instructions.
packages=(cmake g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev libspdlog-dev valgrind)
# Packaging and documentation: CPack's Debian packages (dpkg-dev, file) and their check (lintian),
# pkg-config, man pages generated from --help (help2man, man-db), the API reference (doxygen), the
# demo's JSON check (python3).
packages+=(dpkg-dev file lintian pkg-config help2man man-db doxygen python3)
# The network tests: iproute2 (`ip netns` builds their hosts), tshark (decodes their capture), jq (reads
# veskctl's and tshark's JSON).
packages+=(iproute2 tshark jq)
# The Python module kov_vesk: Debian's pybind11 and Python headers, its tests (pytest) and the check of
# its type stubs (mypy's stubtest).
packages+=(pybind11-dev python3-dev python3-pytest mypy)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "installing: ${missing[*]}"
sudo=()
if [[ $(id -u) -ne 0 ]]; then
  sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
# tshark's package otherwise asks whether non-root users may capture; the tests capture as root.
echo "wireshark-common wireshark-common/install-setuid boolean false" | "${sudo[@]}" debconf-set-selections
"${sudo[@]}" apt-get update -qq || echo "apt-get update reported a problem; trying the install anyway"
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"

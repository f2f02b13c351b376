#!/bin/sh
# Installs, from the distribution's packages, whatever the build, the tests and the benchmarks'
# peers need and this machine lacks. Does nothing when everything is present. With the argument
# "fuzz", also what `make fuzz` needs: clang and its runtime libraries, libFuzzer among them.
set -e
packages="g++ gcc make cmake pkg-config zlib1g-dev libgtest-dev libgmock-dev libbenchmark-dev
gfortran tzdata flex libglib2.0-dev python3 libssl-dev libisal-dev libdeflate-dev libmseed-dev
bzip2 ncompress bison libudunits2-dev"
[ "${1:-}" = fuzz ] && packages="$packages clang libclang-rt-dev"
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" ||
    missing="$missing $p"
done
[ -z "$missing" ] && exit 0
echo "installing:$missing"
if [ "$(id -u)" -eq 0 ]; then sudo=""; else sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends $missing

#!/bin/sh
# Builds the C99 and Fortran programs against an installed library and runs them.
set -e
prefix="$1"
src="$(cd "$(dirname "$0")/.." && pwd)"
out="$prefix/abi"
mkdir -p "$out"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
export LD_LIBRARY_PATH="$prefix/lib"
[ "$(readlink "$prefix/lib/libcorvel.so")" = "libcorvel.so.3" ] || { echo "bad .so link"; exit 1; }
soname=$(objdump -p "$prefix/lib/libcorvel.so.3.0.0" | awk '/SONAME/ {print $2}')
[ "$soname" = "libcorvel.so.3" ] || { echo "bad soname '$soname'"; exit 1; }
if nm -D --defined-only "$prefix/lib/libcorvel.so" | awk '{print $3}' | grep -E '^_Z'; then
  echo "C++ names exported"; exit 1
fi
# The umbrella header is clean C99 and clean C++.
echo '#include <corvel.h>' > "$out/umbrella.c"
cc -std=c99 -pedantic -Wall -Wextra -Werror $(pkg-config --cflags corvel) -c "$out/umbrella.c" -o "$out/u.o"
c++ -x c++ -std=c++17 -Wall -Wextra -Werror $(pkg-config --cflags corvel) -c "$out/umbrella.c" -o "$out/u2.o"
cc -std=c99 -pedantic -Wall -Werror $(pkg-config --cflags corvel) "$src/include/c_abi_test.c" \
  -o "$out/c_abi_test" $(pkg-config --libs corvel)
(cd "$out" && ./c_abi_test)
gfortran -Wall "$src/include/fortran_abi_test.f90" -o "$out/fortran_abi_test" \
  -L"$prefix/lib" -lcorvel
printf 'rate 40\nenabled yes\nchans &Tbl{\n  BHZ\n  BHN\n}\nsta &Arr{\n  ANMO &Arr{\n    gain 1.5e9\n  }\n}\n' \
  >"$out/fortran_abi.pf"
(cd "$out" && PFPATH=. ./fortran_abi_test) 2>"$out/fortran.err"
grep -q "^fortran_abi_test: station offline$" "$out/fortran.err" &&
  grep -q "repeated 2 times" "$out/fortran.err" &&
  grep -q "^fortran_abi_test: complaint from fortran$" "$out/fortran.err" ||
  { echo "fortran: unexpected log"; cat "$out/fortran.err"; exit 1; }
status=0
(cd "$out" && ./fortran_abi_test die) 2>"$out/fortran.err" || status=$?
[ "$status" -eq 1 ] && grep -q "fortran_abi_test \*fatal\*: dying from fortran" "$out/fortran.err" ||
  { echo "fortran: die gave status $status"; cat "$out/fortran.err"; exit 1; }
# The installed command finds the shipped parameter files under its own root with nothing set.
found=$(cd "$out" && env -u PFPATH -u VELMORA "$prefix/bin/corvel" pf --files time_formats)
format=$(cd "$out" && env -u PFPATH -u VELMORA "$prefix/bin/corvel" pf time_formats 'european{date}')
[ "$found" = "$prefix/data/pf/time_formats.pf" ] && [ "$format" = "%d/%m/%Y" ] ||
  { echo "installed time_formats.pf not found: '$found' '$format'"; exit 1; }
# ... and the shipped units table.
converted=$(cd "$out" && env -u UNITS -u DATAPATH -u VELMORA "$prefix/bin/corvel" units 36 km/hour m/s)
[ "$converted" = "10 m/s" ] || { echo "installed units table not found: '$converted'"; exit 1; }
echo "abi: C99 and Fortran programs passed; the installed data files are found"

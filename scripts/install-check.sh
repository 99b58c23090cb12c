#!/usr/bin/env bash
# Proves the library ships: installs a build into a fresh prefix, checks the layout, builds
# the plugin example against the installed CMake package and a program against the
# pkg-config file, and runs them (with the installed velt when the build has the tools).
#
#   scripts/install-check.sh BUILD_DIR   install that build (tools included if it has them)
#   scripts/install-check.sh             first build the library alone, in Release with
#                                        tests, tools, benchmarks and examples off
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -gt 1 ]; then
   echo "usage: $0 [BUILD_DIR]" >&2
   exit 2
fi
jobs=$(nproc)

if [ $# -eq 1 ]; then
   build=$1
else
   build=build-libonly
   echo "== building the library alone in $build"
   cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELT_WERROR=ON \
      -DBUILD_TESTING=OFF -DVELT_BUILD_TOOLS=OFF -DVELT_BUILD_BENCHMARKS=OFF \
      -DVELT_BUILD_EXAMPLES=OFF >/dev/null
   cmake --build "$build" -j "$jobs"
fi
[ -f "$build/CMakeCache.txt" ] || { echo "$build: not a configured build folder" >&2; exit 1; }
libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' "$build/CMakeCache.txt")

work=$(mktemp -d "${TMPDIR:-/tmp}/velt-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "install-check: $*" >&2; exit 1; }

echo "== installing $build into a fresh prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
for f in "$libdir/libVeltRouting.so.0" "$libdir/libVeltPlatform.so.0" \
         "$libdir/libVeltRouting.so" "$libdir/velt/plugins/NhrPlugin/libbuiltins.so" \
         "$libdir/velt/plugins/NhrPlugin/librouteLookup.so" \
         "$libdir/cmake/VeltRouting/VeltRoutingConfigVersion.cmake" \
         "$libdir/cmake/VeltRouting/VeltRoutingPlugin.cmake" \
         "$libdir/pkgconfig/velt-routing.pc" \
         include/velt/VeltLib/NhrPluginLoader.h include/velt/Kor/HashMap.h; do
   [ -e "$prefix/$f" ] || fail "missing $f"
done
for lib in VeltRouting VeltPlatform; do
   readelf -d "$prefix/$libdir/lib$lib.so" | grep -q "SONAME.*\[lib$lib\.so\.0\]" ||
      fail "lib$lib.so has no SONAME lib$lib.so.0"
done
loose=$(find "$prefix/include" -mindepth 1 -maxdepth 1 ! -name velt)
[ -z "$loose" ] || fail "installed outside include/velt: $loose"
! find "$prefix/include" -name '*.cpp' | grep -q . || fail "sources among the headers"

echo "== building the plugin example against the CMake package"
cmake -S examples/plugin -B "$work/plugin" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
   -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" >/dev/null
cmake --build "$work/plugin" >/dev/null
plugin=$work/plugin/plugins/NhrPlugin/libsinkhole.so
[ -f "$plugin" ] || fail "the example did not build $plugin"
cmake --install "$work/plugin" >/dev/null
[ -f "$prefix/$libdir/velt/plugins/NhrPlugin/libsinkhole.so" ] ||
   fail "the example did not install beside the shipped plugins"

echo "== building a program with pkg-config"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
[ "$(pkg-config --modversion velt-routing)" = "$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")" ] ||
   fail "velt-routing.pc has another version than the build"
# shellcheck disable=SC2046 # the flags are words
g++ -std=c++20 -Wall -Wextra -Werror examples/records_demo.cpp -o "$work/records_demo" \
   $(pkg-config --cflags --libs velt-routing) -Wl,-rpath,"$prefix/$libdir"
"$work/records_demo" | grep -q "After its route and neighbour were found" ||
   fail "the pkg-config program did not run"

velt=$prefix/bin/velt
if [ -x "$velt" ]; then
   echo "== running the installed velt with the example plugin"
   for tool in velt velt-pcapgen velt-ringlog; do
      "$prefix/bin/$tool" --help >/dev/null || fail "$tool --help failed"
   done
   # Only the example plugin is named: the shipped ones are found beside the installed library.
   export VELT_PLUGIN_PATH=$work/plugin/plugins
   export VELT_NHR_PLUGINS=builtins,routeLookup,sinkhole
   "$velt" show | grep -q "Sinkhole" || fail "velt show does not list the Sinkhole step"
   "$velt" resolve --vrf tenant 192.0.2.10 | grep -qi "drop" ||
      fail "the sinkhole plugin did not drop 192.0.2.10"
   VELT_SINKHOLE=bad "$velt" show >"$work/out" 2>&1 && fail "a bad VELT_SINKHOLE was accepted"
   grep -q 'VELT_SINKHOLE="bad"' "$work/out" || fail "a bad VELT_SINKHOLE is not named"
fi
echo "== install check passed"

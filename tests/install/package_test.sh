#!/bin/sh
# Installs the build into a folder of its own and builds a C and a C++ program against it there,
# outside the tree: through the CMake package and through pkg-config.
# usage: package_test.sh CMAKE BUILD_DIR
# SPDX-License-Identifier: MIT
set -eu
cmake=$1
build=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$cmake" --install "$build" --prefix "$work/usr" >"$work/install.log"
mkdir "$work/outside"
cp -r "$here/c" "$here/cpp" "$here/program.h" "$work/outside"
cp "$here/outside.cmake" "$work/outside/CMakeLists.txt"

echo "through the CMake package"
"$cmake" -S "$work/outside" -B "$work/build" -G Ninja "-DCMAKE_PREFIX_PATH=$work/usr" >"$work/configure.log"
"$cmake" --build "$work/build"
for program in c_devsupport c_devsupport_static cpp_devsupport cpp_devsupport_static; do
  "$work/build/$program"
done
# The static library asks for Berkeley DB only where the configuration store is used.
if readelf -d "$work/build/c_devsupport_static" | grep -q 'NEEDED.*libdb'; then
  echo "a program that does not use the store needs Berkeley DB"
  exit 1
fi

echo "the installed examples"
"$cmake" -S "$(dirname "$(find "$work/usr" -name log_daemon.c)")" -B "$work/examples" -G Ninja \
  "-DCMAKE_PREFIX_PATH=$work/usr" -DCMAKE_C_FLAGS="-Wall -Wextra -Wpedantic -Werror" >"$work/examples.log"
"$cmake" --build "$work/examples"
[ "$("$work/examples/cache" 7)" = "7: 49, new" ]

echo "through pkg-config"
libdir=$(dirname "$(find "$work/usr" -name devsupport.pc)")
export PKG_CONFIG_PATH="$libdir"
# The files are used where they were installed to, not where the default prefix says.
flags=$(pkg-config --define-variable=prefix="$work/usr" --cflags --libs devsupport)
# shellcheck disable=SC2086  # the flags are words of their own
cc -std=c99 -Wall -Wextra -Wpedantic -Werror "$work/outside/c/main.c" $flags -o "$work/c_program"
# shellcheck disable=SC2086
c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror "$work/outside/cpp/main.cpp" $flags -o "$work/cpp_program"
for program in c_program cpp_program; do
  LD_LIBRARY_PATH="$libdir/.." "$work/$program"
done

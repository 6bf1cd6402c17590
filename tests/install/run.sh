#!/usr/bin/env bash
# Installs the build into a fresh prefix, builds an outside project against it
# with find_package(vyrax) and pkg-config, and runs it: once with the version
# registry module present and once without it.
set -euo pipefail
build_dir=$1
source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
cmake -S "$source_dir/tests/install/client" -B "$work/client" \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/client" >/dev/null
"$work/client/client"

# The same through pkg-config.
PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig:$work/prefix/lib64/pkgconfig" \
  c++ -std=c++17 "$source_dir/tests/install/client/main.cpp" -o "$work/client-pc" \
  $(PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig:$work/prefix/lib64/pkgconfig" pkg-config --cflags --libs vyrax)
# pkg-config gives no run path: the program finds the library as any
# program finds one outside the system's folders.
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib64" "$work/client-pc"

# The library starts when the version registry can't be loaded.
rm -f "$work"/prefix/lib*/vyrax/modules/libvyr_ver.so
"$work/client/client"

# Only the public interface leaves the shared libraries.
if nm -D --defined-only "$work"/prefix/lib*/libvyrax.so | grep -q ' T _ZN3vyr'; then
  echo "internal symbols are exported"; exit 1
fi
# No test hook leaves the installed libraries.
if nm -D --defined-only "$work"/prefix/lib*/lib*.so | grep -E -q 'InjectFault|ClearFaults|take_fault'; then
  echo "test hooks are exported"; exit 1
fi
echo "install test passed"

#!/bin/bash
# check.sh WAY SOURCE_DIR BUILD_DIR COMPILER CMAKE: one check of the install target.
#   package    a project that says find_package(bmtree) builds and runs
#   pkgconfig  a program compiled with the flags of pkg-config builds and runs
#   shared     the shared library exports the operations and leaves the imports undefined
set -euo pipefail
way=$1 source=$2 build=$3 compiler=$4 cmake=$5

scratch=$build/install-check/$way
rm -rf "$scratch"
mkdir -p "$scratch"
consumer=$source/tests/install/consumer

case $way in
  package)
    "$cmake" --install "$build" --prefix "$scratch/prefix"
    "$cmake" -G Ninja -S "$consumer" -B "$scratch/build" -DCMAKE_CXX_COMPILER="$compiler" \
      -DCMAKE_PREFIX_PATH="$scratch/prefix"
    "$cmake" --build "$scratch/build"
    "$scratch/build/consumer"
    ;;
  pkgconfig)
    "$cmake" --install "$build" --prefix "$scratch/prefix"
    pc=$(find "$scratch/prefix" -name bmtree.pc)
    # The library was configured for another prefix than this scratch directory.
    flags=$(PKG_CONFIG_PATH=${pc%/*} pkg-config --define-variable=prefix="$scratch/prefix" --cflags --libs 'bmtree >= 0.1')
    # shellcheck disable=SC2086  # the flags are words
    "$compiler" -std=c++20 "$consumer/main.cpp" $flags -o "$scratch/consumer"
    "$scratch/consumer"
    ;;
  shared)
    "$cmake" -G Ninja -S "$source" -B "$scratch/build" -DCMAKE_CXX_COMPILER="$compiler" \
      -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON -DBMTREE_BUILD_TESTS=OFF -DBMTREE_BUILD_BENCH=OFF \
      -DBMTREE_BUILD_TOOLS=OFF
    "$cmake" --build "$scratch/build" --target bitmap
    "$cmake" --install "$scratch/build" --prefix "$scratch/prefix"
    library=$(find "$scratch/prefix" -name libbitmap.so)
    symbols=$(nm --dynamic --demangle "$library")
    for symbol in 'T BmTestBit' 'U PageLocate' 'U UtlMallocF'; do
      grep -q " $symbol(" <<<"$symbols" || { echo "no '$symbol' in $library" >&2; exit 1; }
    done
    ;;
esac

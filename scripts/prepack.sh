#!/usr/bin/env bash
# npm runs this before it packs. Builds what the package ships, the addon with both engines, and puts
# it without debug information into prebuilt/linux-x64/. The debug information is packed apart, into
# build/tessel-wrapper-VERSION-linux-x64-debug.tar.gz: unpacked beside the files, debuggers find it.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh release --for webrtc

platform=linux-x64
files=(
  tesselWrapper.node libtesselclient.so
  webrtc/tesselWrapper.node webrtc/libtesselclient.so webrtc/examine_webrtc_engine
)

exec {lock}>build/prepack.lock
flock "$lock"
stage=build/prepack
rm -rf "$stage"
for file in "${files[@]}"; do
  shipped=$stage/$platform/$file
  symbols=$stage/debug/$platform/$file.debug
  mkdir -p "$(dirname "$shipped")" "$(dirname "$symbols")"
  objcopy --only-keep-debug "build/release/$file" "$symbols"
  objcopy --strip-unneeded --add-gnu-debuglink="$symbols" "build/release/$file" "$shipped"
done
mkdir -p prebuilt
rm -rf prebuilt/$platform
mv "$stage/$platform" prebuilt/
version=$(node -p 'require("./package.json").version')
tar -czf "build/tessel-wrapper-$version-$platform-debug.tar.gz" -C "$stage/debug" "$platform"
rm -rf "$stage"

# What the oldest systems have that the documents promise: Ubuntu 22.04 and Debian 12.
: >build/prepack.log
for limit in GLIBC_2.34 GLIBCXX_3.4.30 CXXABI_1.3.13; do
  newest=$(find prebuilt/$platform -type f -exec objdump -T {} + |
    grep -oE "\(${limit%_*}_[0-9.]+\)" | tr -d '()' | sort -uV | tail -n 1)
  printf '%s\n' "$newest" "$limit" | sort --version-sort --check=quiet ||
    echo "prepack: needs $newest, more than $limit: systems older than this one cannot load it" |
    tee -a build/prepack.log >&2
done

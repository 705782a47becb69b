#!/usr/bin/env bash
# Installs a build and uses it as others do:  check.sh BUILD_FOLDER CLIP
#
# A host of its own plays the clip from nginx, set up as README.md says, first with all in one
# prefix, then with the library built alone against an installed platform.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
build=$(realpath "$1")
clip=$(realpath "$2")
work=$(mktemp -d)
server=
trap '[[ -z $server ]] || kill "$server"; rm -rf "$work"' EXIT

fail() { echo "check.sh: $*" >&2; exit 1; }

# The README's code block of a language.
readme_block() { awk -v open="^\`\`\`$1\$" '/^```$/ {on = 0} on; $0 ~ open {on = 1}' "$root/README.md"; }

start_nginx() {
  mkdir -p "$work/media/tracks"
  cp "$clip" "$work/media/tracks/7"
  chmod 755 "$work"  # nginx gives up root's rights
  port=$(perl -MIO::Socket::INET -e \
    'print IO::Socket::INET->new(Listen => 1, LocalAddr => "127.0.0.1")->sockport')
  {
    echo "daemon off; pid $work/nginx.pid; events {} http { access_log off;"
    for kind in client_body proxy fastcgi uwsgi scgi; do echo "${kind}_temp_path $work/temp;"; done
    readme_block nginx | sed "s#listen .*;#listen 127.0.0.1:$port;#; s#/srv/media#$work/media#"
    echo "}"
  } >"$work/nginx.conf"
  PATH=$PATH:/usr/sbin nginx -p "$work" -e stderr -c "$work/nginx.conf" &
  server=$!
  for _ in {1..100}; do
    ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || return 0
    sleep 0.05
  done
  fail "nginx does not listen"
}

# try_host NAME PREFIXES: builds the embedding example against installed packages and runs it.
try_host() {
  cmake -S "$here" -B "$work/$1" -G Ninja -DCMAKE_PREFIX_PATH="$2" >/dev/null
  ninja --quiet -C "$work/$1"
  local said
  said=$("$work/$1/embed" 127.0.0.1 "$port" 7) || fail "the host ($1) found no picture"
  [[ $said == "1382400 bytes of I420" ]] || fail "the host ($1) said \"$said\""
}

readme_block cpp | diff - "$here/embed.cpp" || fail "README.md shows another embed.cpp"

cmake --install "$build" --prefix "$work/all" >/dev/null
"$work/all/bin/moravel-play" --version
nm -DC --defined-only "$work/all/lib/libMoravelPlayerQEL.so" | cut -c 20- | sort -u |
  diff - <(sed -n 's/^ *"\(.*\)";$/\1/p' "$root/Player/MoravelPlayerQEL.map" | sort -u) ||
  fail "the library shows other symbols than Player/MoravelPlayerQEL.map lists"
! grep -rnE "[ \";]/(usr|home|tmp)" "$work"/all/lib/cmake || fail "exported targets name absolute paths"

start_nginx
try_host host "$work/all"

rm -r "$work"/all/include/moravel/Player/QEL* "$work"/all/lib/cmake/MoravelPlayerQEL \
  "$work"/all/lib/libMoravelPlayerQEL*
cmake -S "$root" -B "$work/library" -G Ninja -DMORAVEL_SYSTEM_PLATFORM=ON -DMORAVEL_WERROR=ON \
  -DCMAKE_PREFIX_PATH="$work/all" >/dev/null
ninja --quiet -C "$work/library"
cmake --install "$work/library" --prefix "$work/alone" >/dev/null
try_host host-alone "$work/alone;$work/all"
echo "installed, embedded, and built alone against the installed platform"

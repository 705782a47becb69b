#!/usr/bin/env bash
# Installs the packages of ./dev package in folders of their own and uses them as others do:
#   check-install.sh FOLDER_OF_PACKAGES CLIP
#
# The examples are built against them with CMake and with pkg-config and play the clip from nginx,
# set up as README.md says; then the library is built alone against the installed platform.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
packages=$(realpath "$1")
clip=$(realpath "$2")
work=$(mktemp -d)
server=
trap '[[ -z $server ]] || kill "$server"; rm -rf "$work"' EXIT

fail() { echo "check-install.sh: $*" >&2; exit 1; }

# block FILE LANGUAGE: the code blocks of that language.
block() { awk -v open="^\`\`\`$2\$" '/^```$/ {on = 0} on; $0 ~ open {on = 1}' "$root/$1"; }

# install_packages FOLDER NAME...: what the packages put on a machine.
install_packages() {
  local folder=$1 name
  shift
  mkdir -p "$folder/var/lib/dpkg/info" "$folder/var/lib/dpkg/updates"
  : >>"$folder/var/lib/dpkg/status"
  for name; do
    dpkg --root="$folder" --log=/dev/null --force-not-root --force-depends \
      --unpack "$packages/$name"_*.deb >/dev/null 2>"$work/dpkg.log" ||
      { cat "$work/dpkg.log" >&2; fail "cannot install $name"; }
  done
}

start_nginx() {
  mkdir -p "$work/media/tracks"
  cp "$clip" "$work/media/tracks/7"
  ffmpeg -nostdin -v error -i "$clip" -vf scale=720:576,separatefields -frames:v 20 -q:v 3 \
    "$work/field%02d.jpg"
  "$root/cmake/make-fields-track.py" "$work"/field*.jpg >"$work/media/tracks/8"
  chmod 755 "$work"  # nginx gives up root's rights
  port=$(perl -MIO::Socket::INET -e \
    'print IO::Socket::INET->new(Listen => 1, LocalAddr => "127.0.0.1")->sockport')
  {
    echo "daemon off; pid $work/nginx.pid; events {} http { access_log off;"
    for kind in client_body proxy fastcgi uwsgi scgi; do echo "${kind}_temp_path $work/temp;"; done
    block README.md nginx |
      sed "s#listen .*;#listen 127.0.0.1:$port; listen 127.0.0.2:$port;#; s#/srv/media#$work/media#"
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

# try_examples FOLDER: runs what was built there, on one server and on two.
try_examples() {
  local said
  said=$("$1/one-picture" 127.0.0.1 "$port" 7 2>/dev/null) || fail "$1/one-picture found no picture"
  [[ $said == "345600 bytes of I420" ]] || fail "$1/one-picture said \"$said\""
  ! "$1/one-picture" 127.0.0.1 "$port" 9 >/dev/null 2>&1 || fail "$1/one-picture found track 9"
  said=$("$1/host" 127.0.0.1 "$port" 7 127.0.0.2 "$port" 7 2>&1) || fail "$1/host: $said"
  [[ $(grep -c "frame 640x360, .* 345600 bytes" <<<"$said") == 16 && $(wc -l <<<"$said") == 16 ]] ||
    fail "$1/host said $said"
}

with_cmake() {
  cmake -S "$root/examples" -B "$work/$1" -G Ninja -DCMAKE_PREFIX_PATH="$2" >/dev/null
  ninja --quiet -C "$work/$1"
  try_examples "$work/$1"
}

with_pkg_config() {
  local folder=$work/$1 lib example
  lib=$(dirname "$(find "$2" -name moravel-player-qel.pc)")
  mkdir "$folder"
  for example in one-picture host; do
    # shellcheck disable=SC2046
    c++ -std=c++20 "$root/examples/$example.cpp" -o "$folder/$example" -Wl,-rpath,"${lib%/*}" \
      $(PKG_CONFIG_PATH=$lib pkg-config --cflags --libs moravel-player-qel moravel-elements)
  done
  try_examples "$folder"
}

# The code blocks of the documents: README's lines for CMake, and those of embedding.md.
try_documents() {
  mkdir "$work/documents"
  {
    echo 'cmake_minimum_required(VERSION 3.25)
project(Documents LANGUAGES CXX)
add_executable(host host.cpp)'
    block README.md cmake
  } >"$work/documents/CMakeLists.txt"
  {
    echo '#include "Player/QELPreloader.h"
#include "Player/QELSample.h"
#include "qel/WorkflowStepImplementation.h"
#include "elements/storage/TrackInfo.h"  // what docs/elements.md offers to hosts
using namespace Moravel;
void Use(Player::QELPreloader& preloader, const Player::ISample* picture, uint64_t& size) {'
    block docs/embedding.md cpp
    echo '}
int main() {}'
  } >"$work/documents/host.cpp"
  cmake -S "$work/documents" -B "$work/documents/build" -G Ninja -DCMAKE_PREFIX_PATH="$1" >/dev/null
  ninja --quiet -C "$work/documents/build" || fail "the documents' code does not compile"
}

# run_lines FOLDER COMMANDS: a document's, one after the other, until one fails.
run_lines() {
  (cd "$1" && bash -exc "$2") >"$work/said" 2>&1 </dev/null || { cat "$work/said" >&2; fail "$2"; }
}

# What README.md says to build and install this tree, and docs/embedding.md to build a host with it.
try_commands() {
  local host=$work/commands program
  run_lines "$root" "$(sed -n 's/^    \(cmake [^#]*\).*/\1/p' "$root/README.md" | sed "s#PREFIX#$work/prefix#")"
  mkdir "$host"
  cp "$root"/examples/*.cpp "$host"
  block docs/embedding.md cmake >"$host/CMakeLists.txt"
  run_lines "$host" "$(block docs/embedding.md sh | sed "s#\(=\|,\)PREFIX#\1$work/prefix#g")"
  for program in "$host/build/host" "$host/host"; do
    said=$("$program" 127.0.0.1 "$port" 7 2>&1) || fail "$program: $said"
  done
}

# Whoever includes the headers may ask the compiler for more warnings than we do.
try_warnings() {
  local cxx
  (cd "$1/include" && find . -name '*.h' | sed 's#^\./[^/]*/\(.*\)#\#include "\1"#') >"$work/all.cpp"
  for cxx in g++ clang++-14; do
    "$cxx" -std=c++20 -fsyntax-only -Werror -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion \
      -Wshadow -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi \
      -I"$1/include/moravel" -I"$1/include/moravel-platform" "$work/all.cpp" || fail "$cxx warns of headers"
  done
}

# A host with elements of its own needs the library's and the platform's packages only.
try_library_alone() {
  mkdir "$work/alone"
  cat >"$work/alone/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(Alone LANGUAGES CXX)
find_package(MoravelPlayerQEL 1.0 REQUIRED)
add_executable(alone alone.cpp)
target_link_libraries(alone PRIVATE Moravel::MoravelPlayerQEL)
END
  cat >"$work/alone/alone.cpp" <<'END'
#include "Player/QELMultiResDecoder.h"
#include "Player/QELPreloader.h"
int main() { return Moravel::Player::QELMultiResDecoder().Decode({}) == nullptr ? 0 : 1; }
END
  cmake -S "$work/alone" -B "$work/alone/build" -G Ninja -DCMAKE_PREFIX_PATH="$1" >/dev/null
  ninja --quiet -C "$work/alone/build"
  "$work/alone/build/alone" 2>/dev/null || fail "a host with the library alone does not run"
  ! ldd "$work/alone/build/alone" | grep -E "libcurl|libav|turbojpeg|libyuv" ||
    fail "a host with the library alone needs the elements' libraries"
}

# The maintainer has no address yet, the first version closes no bug, and what calls ldconfig is CPack's.
lintian --allow-root --fail-on error,warning --suppress-tags bogus-mail-host,root-in-contact \
  --suppress-tags bogus-mail-host-in-debian-changelog,initial-upload-closes-no-bugs \
  --suppress-tags maintscript-calls-ldconfig,package-name-doesnt-match-sonames \
  "$packages"/*.deb || fail "lintian finds fault with the packages"
block README.md cpp | diff - "$root/examples/one-picture.cpp" || fail "README.md shows another program"
so=$(dpkg-deb -f "$packages"/libmoravelplayerqel[0-9]*.deb Package)
platform=$(dpkg-deb -f "$packages"/libmoravelplatform[0-9]*.deb Package)
! dpkg-deb -f "$packages"/libmoravelplayerqel-dev_*.deb Depends | grep -E "curl|libav|jpeg|yuv" ||
  fail "the library's -dev package asks for the elements' libraries"

install_packages "$work/lean" "$platform" libmoravelplatform-dev "$so" libmoravelplayerqel-dev
library=$(find "$work/lean" -name 'libMoravelPlayerQEL.so.*' -type f)
nm -DC --defined-only "$library" | cut -c 20- | sort -u |
  diff - <(sed -n 's/^ *"\(.*\)";$/\1/p' "$root/Player/MoravelPlayerQEL.map" | sort -u) ||
  fail "the library shows other symbols than Player/MoravelPlayerQEL.map lists"
! nm "$library" 2>/dev/null | grep -q . || fail "the library is not stripped"
try_library_alone "$work/lean/usr"

install_packages "$work/all" "$platform" libmoravelplatform-dev "$so" libmoravelplayerqel-dev \
  libmoravelelements-dev moravel-play
! grep -rE "(INTERFACE|IMPORTED)_[A-Z_]* \"?/|;/|dir=/|prefix=/|-[IL]/" "$work"/all/usr/lib/*/cmake \
  "$work"/all/usr/lib/*/pkgconfig || fail "the installed files name absolute paths"
"$work/all/usr/bin/moravel-play" --version
start_nginx
with_cmake cmake "$work/all/usr"
try_documents "$work/all/usr"
try_warnings "$work/all/usr"
try_commands
with_pkg_config pkg-config "$work/all/usr"
said=$("$work/cmake/host" 127.0.0.1 "$port" 8 2>&1) || fail "host: $said"
[[ $(grep -c "top field 640x180, .* 172800 bytes" <<<"$said") == 8 &&
  $(grep -c "T8 [0-9:.]* bottom field 640x180" <<<"$said") == 8 ]] ||
  fail "host said of interlaced material: $said"

install_packages "$work/platform" "$platform" libmoravelplatform-dev libmoravelelements-dev
run_lines "$root" "$(block docs/platform.md sh |
  sed "s#=PLATFORM#=$work/platform/usr -G Ninja -DMORAVEL_WERROR=ON#; s#build/library#$work/library#")"
ninja --quiet -C "$work/library"
cmake --install "$work/library" --prefix "$work/own" >/dev/null
with_cmake cmake-own "$work/own;$work/platform/usr"
echo "installed, embedded, and built alone against the installed platform"

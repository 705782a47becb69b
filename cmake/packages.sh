# The Debian packages that each command needs, and how they get here; sourced by ./dev.

base=(build-essential cmake ninja-build pkg-config libboost-thread-dev libboost-system-dev
  libcurl4-openssl-dev libturbojpeg0-dev libyuv-dev libspdlog-dev libmicrohttpd-dev libcli11-dev
  libcairo2-dev libfribidi-dev libspng-dev fonts-dejavu-core nlohmann-json3-dev)
# Clips for tests are made by another program's muxer; benchmarks compare with its decoder.
muxer=(libavformat-dev libavcodec-dev libavutil-dev)
for_play=("${base[@]}")
for_package=("${base[@]}" dpkg-dev file)
for_test=("${base[@]}" "${muxer[@]}" libgtest-dev libgmock-dev)
for_bench=("${base[@]}" "${muxer[@]}" libgtest-dev libgmock-dev libbenchmark-dev ffmpeg python3
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good)
for_fuzz=("${base[@]}" "${muxer[@]}" clang-14 libclang-rt-14-dev)
for_check=("${for_bench[@]}" "${for_fuzz[@]}" "${for_package[@]}" git clang-format-14 clang-tidy-14
  doxygen cloc lintian chromium chromium-driver)

as_root() { if ((EUID == 0)); then "$@"; else sudo "$@"; fi; }

# Ends with one line when nobody here may install these packages.
may_install() {
  ((EUID != 0)) && ! command -v sudo >/dev/null || return 0
  echo "./dev: packages are missing and there is no sudo; as root: apt-get install $*" >&2
  exit 1
}

# Another one's apt that is under way is waited for.
apt() {
  as_root env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 \
    apt-get -o DPkg::Lock::Timeout=600 "$@" >&2
}

# Installs those of the packages that are missing; touches nothing when all are there.
need() {
  local missing
  mapfile -t missing < <(comm -23 <(printf '%s\n' "$@" | sort -u) \
    <(dpkg-query -W -f '${db:Status-Abbrev} ${Package}\n' "$@" 2>/dev/null |
      sed -n 's/^.i *//p' | sort -u))
  ((${#missing[@]})) || return 0
  may_install "${missing[@]}"
  say "installing ${missing[*]}"
  [[ -n ${updated:-} ]] || apt update
  updated=yes
  apt install -y --no-install-recommends "${missing[@]}"
}

# The tests want nginx as a program: its service starts neither now nor at boot.
need_nginx() {
  [[ ! -e /usr/sbin/nginx ]] || return 0
  may_install nginx-light
  local systemd=false
  [[ ! -d /run/systemd/system ]] || systemd=true
  ! $systemd || as_root systemctl mask --runtime nginx
  need nginx-light
  as_root update-rc.d nginx disable
  ! $systemd || as_root systemctl unmask --runtime nginx
}

# shellcheck shell=bash
# Sourced by the commands that need a bare Debian 12; defines functions that make one and enter it (chroot(8)).

# FOLDER, where a minimal Debian 12 is made unless it is there.
make_bare_debian() {
  [ "$(id -u)" -eq 0 ] || { echo "Only root may make a bare system." >&2; return 1; }
  require_packages debootstrap
  [ ! -e "$1/etc/debian_version" ] || return 0
  step "Making a bare Debian 12"
  rm -rf --one-file-system "$1.part"
  quietly debootstrap --variant=minbase bookworm "$1.part"
  mv "$1.part" "$1"
}

# ROOT: mounts the kernel file systems that a container has.
enter() {
  mount -t proc proc "$1/proc"
  mount -t sysfs sysfs "$1/sys"
  mount -t devpts -o ptmxmode=0666,newinstance devpts "$1/dev/pts"
  ln -sf pts/ptmx "$1/dev/ptmx"
  mkdir -p "$1/dev/shm"
  mount -t tmpfs tmpfs "$1/dev/shm"
  cp /etc/resolv.conf "$1/etc/resolv.conf"
}

# ROOT
leave() { umount "$1/dev/shm" "$1/dev/pts" "$1/sys" "$1/proc" 2>/dev/null || true; }

# ROOT COMMAND...
inside() {
  local root=$1
  shift
  env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root chroot "$root" "$@"
}

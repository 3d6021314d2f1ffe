#!/usr/bin/env bash
# Installs the packages in a fresh Debian 12 folder, runs the servers there as their own users, lets daemons built
# against the installed files talk, removes everything again and looks for leftovers. Then boots that folder's systemd,
# where this machine allows it, and installs, upgrades, reloads, kills and removes the services. Needs root, Debian 12 and
# its package mirror; builds the packages first when they are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$(id -u)" -ne 0 ]; then
  echo 'package-test: only root can make a Debian folder' >&2
  exit 1
fi
packages=build/package/packages
[ -d $packages ] || scripts/package.sh
scripts/setup.sh package

root=$(mktemp -d)
chmod 755 "$root"  # unprivileged users have their "/" here
clean_up() {
  for mounted in dev proc; do umount -l "$root/$mounted" 2>/dev/null || true; done
  rm -rf --one-file-system "$root"
}
trap clean_up EXIT

# The mirror and the proxy come from this machine's apt.
mirror=$(apt-get indextargets --format '$(SITE) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
  awk '$2 == "bookworm" && $3 == "main" { print $1; exit }')
debootstrap --variant=minbase bookworm "$root" ${mirror:+"$mirror"} >"$root.log" || {
  cat "$root.log" >&2
  exit 1
}
rm -f "$root.log"
apt-config dump | grep '^Acquire::.*Proxy' >"$root/etc/apt/apt.conf.d/proxy" || true
cp /etc/resolv.conf /etc/hosts "$root/etc/"
for mounted in proc dev; do mount --bind /$mounted "$root/$mounted"; done

mkdir "$root/root/test"
cp $packages/*.deb README.md tests/install/check_{packages,consumers,systemd}.sh tests/install/attack{s.sh,.pl} \
  build/package/examples/{provider,consumer,services,login_keeper} "$root/root/test/"
cp -r tests/install/consumer "$root/root/test/project"
cp -r docs/tutorial tests/faces/follow_page.py "$root/root/test/"
in_folder() { env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 chroot "$root" "$@"; }
in_folder /root/test/check_packages.sh

in_folder env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends systemd systemd-sysv procps \
  >"$root/systemd.log" 2>&1 || {
  cat "$root/systemd.log" >&2
  exit 1
}
for mounted in dev proc; do umount -l "$root/$mounted"; done
status=0
tests/install/boot_systemd.sh "$root" /root/test/check_systemd.sh || status=$?
if [ $status -eq 77 ]; then
  echo 'package-test: NOT TESTED: upgrades, crashes and hangs under systemd'
else
  exit $status
fi

#!/usr/bin/env bash
# Installs the packages in a fresh Debian 12 folder, runs the servers there as their own users, lets daemons built
# against the installed files talk, removes everything again and looks for leftovers. Needs root, Debian 12 and its
# package mirror; builds the packages first when they are missing.
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
cp $packages/*.deb README.md tests/install/check_packages.sh tests/install/check_consumers.sh \
  build/package/examples/{provider,consumer,services,login_keeper} "$root/root/test/"
cp -r tests/install/consumer "$root/root/test/project"
env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 chroot "$root" /root/test/check_packages.sh

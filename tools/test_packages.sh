#!/usr/bin/env bash
# test_packages.sh PACKAGE_DIR: installs the Debian packages in that directory into a clean Debian 12
# of its own, as a person would, and uses them there: a data directory, an agent, a client, a record.
# Needs root, and a Debian mirror as apt knows it.
set -euo pipefail
packages=$(cd "$1" && pwd)
[ "$(id -u)" = 0 ] || { echo 'test_packages: a clean root needs root' >&2; exit 1; }
root=$(mktemp -d)
agent=
cleanup() {
  [ -z "$agent" ] || kill "$agent" 2>/dev/null || true
  umount "$root/proc" 2>/dev/null || true
  rm -rf "$root"
}
trap cleanup EXIT

fail() {
  echo "test_packages: $*" >&2
  exit 1
}

mirror=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' | head -n 1)
debootstrap --variant=minbase bookworm "$root" "$mirror" >/dev/null
# Where packages come from, and what lies between, is as on this system.
cp /etc/apt/sources.list "$root/etc/apt/" 2>/dev/null || true
cp -r /etc/apt/sources.list.d /etc/apt/apt.conf.d /etc/apt/trusted.gpg.d "$root/etc/apt/" 2>/dev/null || true
cp /etc/resolv.conf "$root/etc/" 2>/dev/null || true
mount -t proc proc "$root/proc" 2>/dev/null || true
mkdir "$root/packages"
cp "$packages"/*.deb "$root/packages/"
echo '127.0.0.1 localhost' >"$root/etc/hosts"
enter=(chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8
  DEBIAN_FRONTEND=noninteractive)
in_root() { "${enter[@]}" "$@"; }

in_root apt-get -q update >/dev/null
in_root sh -c 'apt-get -q -y --no-install-recommends install /packages/*.deb' >/dev/null
for package in libnox1 libnox-dev noxd nox; do
  [ "$(in_root dpkg-query -W -f='${db:Status-Status}' "$package")" = installed ] ||
    fail "$package is not installed"
done
for program in nox noxd; do
  if in_root ldd "/usr/bin/$program" | grep -q 'not found'; then fail "$program misses a library"; fi
  in_root "$program" --version
done
in_root getent passwd noxd >/dev/null || fail 'there is no user noxd'
in_root test -f /usr/lib/systemd/system/noxd.service || fail 'there is no unit'
in_root test -f /usr/include/nox/nox.h || fail 'there is no nox/nox.h'
in_root test -f /usr/include/nox/client/client.h || fail 'there is no nox/client/client.h'
in_root test -f /usr/share/bash-completion/completions/nox || fail 'there is no completion'

in_root sh -c 'umask 077; echo a-password-for-one-test >/root/password'
in_root noxd init --data-dir /root/data --account MAIN --user ann --password-file /root/password \
  --self-signed >/dev/null
in_root sed -i 's/^#listen = .*/listen = "127.0.0.1:0"/' /root/data/noxd.toml
# Not through the function, so that its process is the agent's own.
"${enter[@]}" noxd --config /root/data/noxd.toml --ports-file /root/ports 2>"$root/root/log" &
agent=$!
for _ in $(seq 200); do
  [ ! -s "$root/root/ports" ] || break
  sleep 0.05
done
port=$(sed -n 's/^tls //p' "$root/root/ports")
[ -n "$port" ] || { cat "$root/root/log"; fail 'the agent did not start'; }
nox() {
  in_root env NOX_URI="nox://ann@localhost:$port/MAIN?ca=/root/data/tls/certificate.pem&password_file=/root/password" \
    nox "$@"
}
nox create-file T
nox write T 1 'a^b]c'
[ "$(nox read --text T 1)" = 'a^b]c' ] || fail 'the record is not what was written'
kill "$agent"
wait "$agent" || fail "the agent ended with status $?"
agent=

in_root apt-get -q -y purge nox noxd libnox-dev libnox1 >/dev/null
if in_root sh -c 'ls /usr/bin/nox /usr/lib/*/libnox*' 2>/dev/null; then
  fail 'files are left behind by the packages'
fi
echo 'The packages install, work and go away again.'

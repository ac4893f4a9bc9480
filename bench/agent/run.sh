#!/usr/bin/env bash
# Measures noxd beside raw sockets, Redis and PostgreSQL: bench/agent/run.sh BUILD_DIR [LINE...]
# Starts all of them on free ports of this machine with fresh data, prints tables as Markdown (of the
# lines that are named: echo, tls, read, write, rows, memory; else of all), keeps them in
# BUILD_DIR/agent-bench.md, and ends what it started. NOX_BENCH_SYNC=MICROSECONDS: how long a
# synchronisation of the disk takes at least.
set -euo pipefail

build=$(cd "$1" && pwd)
shift
work=$(mktemp -d)
started=()

finish() {
  local pid
  for pid in "${started[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${started[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap finish EXIT

fail() {
  echo "bench/agent/run.sh: $*" >&2
  exit 1
}

free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# wait_for WHAT COMMAND...: until the command succeeds.
wait_for() {
  local what=$1 i
  shift
  for i in $(seq 200); do
    "$@" >/dev/null 2>&1 && return
    sleep 0.05
  done
  fail "$what did not start"
}

# Those that write, where NOX_BENCH_SYNC says how long a disk takes.
on_disk=()
if [ -n "${NOX_BENCH_SYNC:-}" ]; then
  on_disk=(env LD_PRELOAD="$build/lib/libnox_bench_slow_disk.so")
fi

head -c 18 /dev/urandom | base64 >"$work/password"
chmod 600 "$work/password"

# The floor.
openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=localhost \
  -keyout "$work/key.pem" -out "$work/certificate.pem" 2>/dev/null
"$build/bin/nox_echo_server" "$work/certificate.pem" "$work/key.pem" >"$work/raw" &
started+=($!)
wait_for 'the echo server' test -s "$work/raw"
read -r raw_port raw_tls_port <"$work/raw"

# noxd, as shipped but for its ports and the certificate.
"$build/bin/noxd" init --data-dir "$work/noxd" --account MAIN --user bench \
  --password-file "$work/password" >/dev/null
cat >"$work/noxd.toml" <<END
[server]
data_directory = "$work/noxd"
listen = "127.0.0.1:0"
[tls]
enabled = true
listen = "127.0.0.1:0"
certificate = "$work/certificate.pem"
key = "$work/key.pem"
[log]
file = "$work/noxd.log"
END
"${on_disk[@]}" "$build/bin/noxd" --config "$work/noxd.toml" --ports-file "$work/ports" &
noxd=$!
started+=($noxd)
wait_for noxd test -s "$work/ports"
noxd_port=$(sed -n 's/^plain //p' "$work/ports")
noxd_tls_port=$(sed -n 's/^tls //p' "$work/ports")

# Redis without persistence.
redis_port=$(free_port)
redis-server --port "$redis_port" --bind 127.0.0.1 --save '' --appendonly no --dir "$work" \
  >/dev/null &
started+=($!)
wait_for Redis redis-cli -p "$redis_port" ping

# PostgreSQL with its defaults; it does not run as root.
as_postgres=()
if [ "$(id -u)" = 0 ]; then
  as_postgres=(setpriv --reuid=postgres --regid=postgres --clear-groups)
  chmod 755 "$work"
fi
pg=$(pg_config --bindir)
mkdir "$work/postgres"
[ "$(id -u)" != 0 ] || chown postgres "$work/postgres"
"${as_postgres[@]}" "$pg/initdb" -D "$work/postgres/data" -U bench -A trust >/dev/null
postgres_port=$(free_port)
"${as_postgres[@]}" "${on_disk[@]}" "$pg/postgres" -D "$work/postgres/data" -p "$postgres_port" \
  -c listen_addresses=127.0.0.1 -c unix_socket_directories= >"$work/postgres.log" 2>&1 &
started+=($!)
postgres="host=127.0.0.1 port=$postgres_port user=bench dbname=postgres"
wait_for PostgreSQL "$pg/pg_isready" -d "$postgres"

"$build/bin/nox_agent_bench" "$noxd_port" "$noxd_tls_port" "$work/password" "$noxd" \
  "$raw_port" "$raw_tls_port" "$redis_port" "$postgres" "$@" | tee "$build/agent-bench.md"

#!/usr/bin/env bash
# demo.sh BUILD_DIR: lets the echo agent and its client of that build talk to each other, as two
# processes. Shows what they say; the exit status is 0 when everything was as expected.
set -euo pipefail
[ $# -eq 1 ] || { echo "usage: demo.sh BUILD_DIR" >&2; exit 2; }
bin=$(cd "$1" && pwd)/bin
work=$(mktemp -d)
patience=60  # seconds, for a process that hangs

fail() {
  printf '\ndemo: %s\n' "$*" >&2
  exit 1
}

agent=
cleanup() {
  # A stopped agent has no number any more: what is left is ours.
  [ -z "$agent" ] || kill "$agent" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

step() { printf '\n==== %s\n' "$*"; }

# Starts the agent and waits until it has said where it listens: its output is a pipe, and reading
# from that ends with the first line, or with the agent.
start_agent() {
  mkfifo "$work/said"
  "$bin/echo_agent" "$work/certificate.pem" >"$work/said" &
  agent=$!
  exec 3<"$work/said"
  rm "$work/said"
  read -r -t "$patience" _ plain _ tls <&3 || fail 'the agent did not start'
  printf 'The agent is process %s; it listens on ports %s (TCP) and %s (TLS).\n' \
    "$agent" "$plain" "$tls"
}

# What else the agent said, up to its end, and how it ended.
finish_agent() {
  local status=0 reading=0 line
  while [ $reading -eq 0 ]; do
    if read -r -t "$patience" line <&3; then printf '  agent: %s\n' "$line"; else reading=$?; fi
  done
  exec 3<&-
  [ $reading -le 128 ] || fail 'the agent does not end'  # that is how read reports a time-out
  wait "$agent" || status=$?
  agent=
  [ $status -eq 0 ] || fail "the agent ended with status $status"
  echo 'The agent ended with status 0.'
}

client() { timeout "$patience" "$bin/echo_client" "$@" || fail "the client failed"; }

step 'Start the agent'
start_agent

step 'Let the client talk to it'
client "$plain" "$tls" "$work/certificate.pem"

step 'A client asks the agent to end'
client --stop "$plain"
finish_agent

step 'Start the agent again, and end it by a signal'
start_agent
kill -TERM "$agent"
finish_agent

step 'The demo went as expected.'

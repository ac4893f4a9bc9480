#!/usr/bin/env bash
# demo.sh BUILD_DIR [--keep]: the main job, before your eyes. Starts noxd over TLS with a fresh data
# directory, loads this machine's package database and works with it, through a crash and a restart.
# Shows every command as a person would type it, and what it really answered. The exit status is 0
# when everything was as expected. With --keep the agent goes on and you are told how to connect.
set -euo pipefail
[ $# -ge 1 ] || { echo "usage: demo.sh BUILD_DIR [--keep]" >&2; exit 2; }
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=$(cd "$1" && pwd)/bin
keep=${2:-}
work=$(mktemp -d)
cd "$work"
export PATH=$bin:$PATH NO_COLOR=1
unset NOX_URI NOX_HOST NOX_PORT NOX_USER NOX_ACCOUNT NOX_PASSWORD_FILE NOX_TLS NOX_CA NOX_TRACE

agent=
other=
cleanup() {
  # A process that has ended has no number here any more: what is left is ours.
  [ -z "$other" ] || kill "$other" 2>/dev/null || true
  [ -z "$agent" ] || kill "$agent" 2>/dev/null || true
  [ -z "$agent" ] || wait "$agent" 2>/dev/null || true
  cd / && rm -rf "$work"
}
trap cleanup EXIT

fail() {
  printf '\ndemo: %s\n' "$*" >&2
  exit 1
}

step() { printf '\n==== %s\n\n' "$*"; }

# Shows a command with the quotation marks it needs, then runs it.
show() {
  local word text=
  for word in "$@"; do
    case $word in
      '' | *[!A-Za-z0-9_./:=,+@%-]*) text+=" '${word//\'/\'\\\'\'}'" ;;
      *) text+=" $word" ;;
    esac
  done
  printf '$%s\n' "$text"
}
run() {
  show "$@"
  "$@" || fail "that ended with status $?"
}
# The same for a command that must end with another status.
run_expecting() {
  local expected=$1 status=0
  shift
  show "$@"
  "$@" || status=$?
  [ $status -eq "$expected" ] || fail "that ended with status $status instead of $expected"
  printf '(status %s)\n' "$status"
}
# Statements of one session, shown as they would be typed at the prompt.
session() {
  printf '$ nox\n'
  nox --script "$1" --echo || fail "the session ended with status $?"
}

start_agent() {
  rm -f ports
  echo '$ noxd --config data/noxd.toml --ports-file ports 2>>log &'
  noxd --config data/noxd.toml --ports-file ports 2>>log &
  agent=$!
  local i
  for i in $(seq 200); do
    [ ! -s ports ] || break
    kill -0 "$agent" 2>/dev/null || { cat log; fail 'the agent did not start'; }
    sleep 0.05
  done
  [ -s ports ] || fail 'the agent did not start'
  plain=$(sed -n 's/^plain //p' ports)
  tls=$(sed -n 's/^tls //p' ports)
  export NOX_URI="nox://demo@localhost:$tls/MAIN?ca=$work/data/tls/certificate.pem&password_file=$work/password"
  printf "\$ export NOX_URI='%s'\n" "$NOX_URI"
  printf '(process %s; port %s for TLS, %s for plain text on this machine)\n' "$agent" "$tls" "$plain"
}

step 'A data directory with an account, a user, a certificate of its own and a password'
echo '$ head -c 18 /dev/urandom | base64 >password'
head -c 18 /dev/urandom | base64 >password
run chmod 600 password
run noxd init --data-dir data --account MAIN --user demo --password-file password --self-signed
run sed -i 's/^#listen = .*/listen = "127.0.0.1:0"/' data/noxd.toml
run noxd --check-config --config data/noxd.toml
start_agent
run nox login -f table

step 'Load the package database, and the dictionary that describes it'
status=/var/lib/dpkg/status
[ -s "$status" ] || status=$here/data/packages.status
awk -f "$here/packages/to_jsonl.awk" "$status" >packages.jsonl
cp "$here/data/packages.dictionary.jsonl" dictionary.jsonl
run nox create-file PACKAGES
run nox load 'DICT PACKAGES' dictionary.jsonl
run nox load PACKAGES packages.jsonl
[ "$(nox run COUNT PACKAGES)" = "$(wc -l <packages.jsonl) records counted" ] ||
  fail 'not every record arrived'

step 'List, count and select'
run nox files -f table
run nox run COUNT PACKAGES WITH SECTION = '"libs"'
run nox run SORT PACKAGES WITH SECTION = '"shells"' VERSION SIZE NEEDS DEPENDS
run nox select PACKAGES WITH SIZE '>' 100 AND SECTION = '"shells"' BY-DSND SIZE -f table
shell=$(nox select PACKAGES WITH SECTION = '"shells"' BY-DSND SIZE -f raw | head -n 1)
[ -n "$shell" ] || fail 'no shell among the packages'

step 'One record as a tree, and what it looks like on the wire'
run nox read --tree PACKAGES "$shell"
printf '$ NOX_TRACE=trace nox exists PACKAGES %s; cat trace\n' "$shell"
NOX_TRACE=trace nox exists PACKAGES "$shell"
cat trace
echo '{"type": "ReadRecordRequest", "fields": [["readMode", 0], ["_fileName", "PACKAGES"], ["_recordId", "'"$shell"'"]]}' >request.json
run cat request.json
run nox encode request.json -o frame
run nox dump --as hex frame

step 'Two clients and one record: a lock keeps the second one out'
# A statement for the first client, which reads them from a pipe as they come.
tell() {
  printf "\$ printf '%%s\\\\n' '%s' >&4\n" "$1"
  printf '%s\n' "$1" >&4
}
run mkfifo typed
echo '$ nox --script typed --echo >other.out 2>&1 &      (the first client)'
nox --script typed --echo >other.out 2>&1 &
other=$!
echo '$ exec 4>typed'
exec 4>typed
tell "\\read --lock update --text PACKAGES $shell"
for i in $(seq 200); do
  [ "$(nox monitor locks -f raw --no-header | wc -l)" -eq 0 ] || break
  sleep 0.05
done
run nox monitor locks -f table
run_expecting 1 nox read --lock update --no-wait PACKAGES "$shell"
tell "\\write --set 9=favourite PACKAGES $shell"
tell '\q'
echo '$ exec 4>&-'
exec 4>&-
show wait "$other"
wait "$other" || { cat other.out; fail 'the first client failed'; }
other=
run cat other.out
run nox write --set 9.2=seen-twice PACKAGES "$shell"
run nox read --text PACKAGES "$shell"

step 'A select list, page by page with the records; some are changed, each page is committed'
run mark_large "$NOX_URI" 5000
run nox run COUNT PACKAGES WITH SIZE '>=' 5000

step 'SQL over the same file'
run nox sql 'SELECT SECTION, COUNT(*) AS PACKAGES, SUM(SIZE) AS KIB FROM PACKAGES GROUP BY SECTION ORDER BY 3 DESC LIMIT 5' -f table
run nox sql 'SELECT VALUE AS DEPENDS_ON, COUNT(*) AS TIMES FROM PACKAGES__DEPENDS GROUP BY 1 ORDER BY 2 DESC LIMIT 3' -f table
run nox sql 'SELECT ID, VERSION FROM PACKAGES WHERE ID = ?' "$shell" -f json

step 'A subroutine, written in Lua, stored as a record and run in the server'
cat "$here/packages/section_report.lua"
run nox create-file NOX.SUBS
run nox write NOX.SUBS SECTION.REPORT --from "$here/packages/section_report.lua"
run nox call SECTION.REPORT shells '' '' -f table

step 'A command that asks first'
run nox create-file SCRATCH
run nox write SCRATCH 1 something
run nox run CLEAR-FILE SCRATCH --answer Y
run nox run COUNT SCRATCH

step 'Dates: days since the end of 1967, as people read and write them'
run nox conv D4- 0 21510 -f table
run nox conv --input D4- 11-21-2026 -f table
run nox conv DI 21510 -f raw

step 'A local transaction: all or nothing'
cat >session.nox <<END
\\begin
\\write SCRATCH a 'first^half'
\\write SCRATCH b 'second^half'
COUNT SCRATCH
\\rollback
COUNT SCRATCH
\\begin
\\write SCRATCH a 'first^half'
\\write SCRATCH b 'second^half'
\\commit
COUNT SCRATCH
END
session session.nox

step 'A branch of a distributed transaction survives a crash between prepare and commit'
cat >branch.nox <<END
\\xa start 1:demo-7
\\write SCRATCH c 'in the branch'
\\xa end 1:demo-7
\\xa prepare 1:demo-7
END
session branch.nox
run_expecting 1 nox exists SCRATCH c
show kill -9 "$agent"
kill -9 "$agent"
wait "$agent" 2>/dev/null || true
agent=
start_agent
run nox xa list -f table
run_expecting 1 nox read --lock update --no-wait SCRATCH c
run nox xa commit 1:demo-7
run nox read --text SCRATCH c

step 'What the agent counts'
page() {
  if command -v curl >/dev/null; then
    curl -sS "http://127.0.0.1:$plain/$1"
  else  # bash alone
    exec 3<>"/dev/tcp/127.0.0.1/$plain"
    printf 'GET /%s HTTP/1.0\r\n\r\n' "$1" >&3
    cat <&3
    exec 3<&-
  fi
}
printf '$ curl -sS http://127.0.0.1:%s/metrics | grep -E "^noxd_(sessions|connections_total|store)"\n' "$plain"
page metrics >metrics
grep -E '^noxd_(sessions|connections_total|store)' metrics || fail 'the metrics are not there'
run nox monitor status -f table

step 'Back up while it runs, and drain'
run noxd backup --config data/noxd.toml backup
if [ "$keep" = --keep ]; then
  trap - EXIT
  disown "$agent"
  cat <<END

The agent goes on as process $agent. Connect with:

  export NOX_URI='$NOX_URI'
  $bin/nox

and when you have seen enough:

  kill $agent && rm -rf $work
END
  exit 0
fi
show kill -TERM "$agent"
kill -TERM "$agent"
status=0
wait "$agent" || status=$?
agent=
[ $status -eq 0 ] || fail "the agent ended with status $status"
echo '(status 0)'
run noxd restore --data-dir restored backup
run noxd verify --data-dir restored

printf '\nThe main job is done.\n'

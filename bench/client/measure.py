#!/usr/bin/env python3
"""Measures the command nox with noxd: bench/client/measure.py BUILD_DIR

Loads the machine's package database again and again under other ids until there are RECORDS of them,
exports it, and prints rows of SQL. Prints a table as Markdown and keeps it in
BUILD_DIR/client-bench.md. Ends the agent that it started.
"""

import base64
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time
import typing

RECORDS = 200_000
ROWS = 1_000_000
ROUNDS = 5

HERE = pathlib.Path(__file__).resolve().parent
EXAMPLES = HERE.parent.parent / "examples"
NUMBERS = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < {rows})"
SQL = NUMBERS + " SELECT i, i * 7, 'name ' || i, 'street', 'town', i % 100, 'x', 'y' FROM n"


def package_records():
    status = pathlib.Path("/var/lib/dpkg/status")
    if not status.exists():
        status = EXAMPLES / "data" / "packages.status"
    script = EXAMPLES / "packages" / "to_jsonl.awk"
    lines = subprocess.run(["awk", "-f", script, status], check=True, capture_output=True, text=True)
    return [json.loads(line) for line in lines.stdout.splitlines()]


def write_input(path):
    """The packages in the order of their ids, as a load of them would mostly be."""
    records = package_records()
    with open(path, "w", encoding="utf-8") as file:
        for i in range(RECORDS):
            turn, place = divmod(i, len(records))
            record = records[place]
            line = {"id": f"{turn:06}-{record['id']}", "record": record["record"]}
            file.write(json.dumps(line, ensure_ascii=False) + "\n")


class Run(typing.NamedTuple):
    seconds: float
    nox: float  # seconds of processor time
    noxd: float
    memory: float  # of nox at most, in MiB


class Agent:
    """A noxd with fresh data, until it is closed."""

    def __init__(self, build, work):
        self.nox = build / "bin" / "nox"
        self.password = work / "password"
        self.password.write_text(base64.b64encode(os.urandom(18)).decode() + "\n")
        self.password.chmod(0o600)
        noxd = build / "bin" / "noxd"
        data = work / "data"
        subprocess.run([noxd, "init", "--data-dir", data, "--account", "MAIN", "--user", "bench",
                        "--password-file", self.password, "--self-signed"],
                       check=True, stdout=subprocess.DEVNULL)
        configuration = data / "noxd.toml"
        text = configuration.read_text()
        configuration.write_text(text.replace("#listen = ", 'listen = "127.0.0.1:0" # ', 1))
        ports = work / "ports"
        self.process = subprocess.Popen([noxd, "--config", configuration, "--ports-file", ports],
                                        stderr=open(work / "log", "w"))
        while not ports.exists():
            if self.process.poll() is not None:
                sys.exit("noxd did not start: " + (work / "log").read_text())
            time.sleep(0.02)
        port = dict(line.split() for line in ports.read_text().splitlines())["tls"]
        self.uri = (f"nox://bench@localhost:{port}/MAIN?ca={data}/tls/certificate.pem"
                    f"&password_file={self.password}")

    def processor_time(self):
        """Seconds that noxd has computed so far."""
        stat = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text()
        user, system = stat.rpartition(")")[2].split()[11:13]
        return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")

    def run(self, *arguments):
        """One run of the command."""
        computed = self.processor_time()
        begin = time.monotonic()
        process = subprocess.Popen([self.nox, "--uri", self.uri, *map(str, arguments)],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f"nox {arguments[0]} ended with status {process.returncode}")
        return Run(seconds=time.monotonic() - begin,
                   nox=usage.ru_utime + usage.ru_stime,
                   noxd=self.processor_time() - computed,
                   memory=usage.ru_maxrss / 1024)

    def close(self):
        self.process.terminate()
        self.process.wait()


def measure(agent, records):
    """Lines of the table: what, how many, and the runs."""
    lines = {}

    def note(what, count, run):
        lines.setdefault(what, (count, []))[1].append(run)

    agent.run("create-file", "PACKAGES")
    agent.run("load", "DICT PACKAGES", EXAMPLES / "data" / "packages.dictionary.jsonl")
    for _ in range(ROUNDS):
        agent.run("run", "CLEAR-FILE PACKAGES (Y")
        note("load, JSON lines", RECORDS, agent.run("load", "PACKAGES", records))
        note("export, JSON lines", RECORDS, agent.run("export", "PACKAGES"))
        note("export, CSV", RECORDS, agent.run("-f", "csv", "export", "PACKAGES"))
        note("sql, CSV, a tenth of the rows", ROWS // 10,
             agent.run("-f", "csv", "sql", SQL.format(rows=ROWS // 10)))
        note("sql, CSV", ROWS, agent.run("-f", "csv", "sql", SQL.format(rows=ROWS)))
    return lines


def table(lines):
    text = ["| What | Records or rows | Per second | `nox` computes | `noxd` computes | Neither | "
            "Memory of `nox` |",
            "|---|---|---|---|---|---|---|"]
    for what, (count, runs) in lines.items():
        seconds, nox, noxd, _ = (statistics.median(column) for column in zip(*runs))
        each = [1e6 * part / count for part in (nox, noxd, max(0, seconds - nox - noxd))]
        memory = max(run.memory for run in runs)
        text.append(f"| {what} | {count:,} | {count / seconds:,.0f} | {each[0]:.1f} us | "
                    f"{each[1]:.1f} us | {each[2]:.1f} us | {memory:.1f} MiB |")
    return "\n".join(text) + "\n"


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory() as directory:
        work = pathlib.Path(directory)
        records = work / "records.jsonl"
        write_input(records)
        agent = Agent(build, work)
        try:
            text = table(measure(agent, records))
        finally:
            agent.close()
    (build / "client-bench.md").write_text(text)
    print(text, end="")


if __name__ == "__main__":
    main()

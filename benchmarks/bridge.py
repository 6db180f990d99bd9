#!/usr/bin/env python3
"""Measures jwbridge with a real Mosquitto and simulated boards:

- payloads a second from the spool to the broker, beside a loop of libmosquitto alone
- processor time for 48 boards that send 100 payloads a second each, beside QSerialPort alone
- time from the board's bytes to the receipt by mosquitto_sub

Usage: benchmarks/bridge.py BUILD (with the programs) BENCH (with publishloop and serialread)
"""

import os
import pathlib
import re
import signal
import socket
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

PAYLOAD = b"$PJWVER,7300022,1,4,0*0d"
MESSAGES = 100000
ROUNDS = 5
BOARDS = 48
SECONDS = 6


def free_port():
    with socket.socket() as server:
        server.bind(("127.0.0.1", 0))
        return server.getsockname()[1]


class Broker:
    """A Mosquitto on a free loopback port."""

    def __enter__(self):
        self.folder = tempfile.TemporaryDirectory()
        self.port = free_port()
        config = pathlib.Path(self.folder.name, "mosquitto.conf")
        config.write_text(f"listener {self.port} 127.0.0.1\nallow_anonymous true\nmax_queued_messages 1000000\n")
        self.process = subprocess.Popen(["/usr/sbin/mosquitto", "-c", config], stderr=subprocess.DEVNULL)
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return self
            except ConnectionRefusedError:
                time.sleep(0.05)

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.folder.cleanup()

    def subscribe(self, count, text):
        """Returns a mosquitto_sub that ends after `count` payloads and writes `text` for each."""
        process = subprocess.Popen(
            ["stdbuf", "-oL", "mosquitto_sub", "-d", "-V", "5", "-p", str(self.port), "-t", "jw/+/boards/+/rx",
             "-C", str(count), "-F", text], stdout=subprocess.PIPE)
        for line in process.stdout:
            if b"received SUBACK" in line:
                break
        return process


def make_spool(folder, jwbridge, port):
    """Makes a spool with MESSAGES payloads."""
    bridge = subprocess.Popen([jwbridge, "--broker", "mqtt://127.0.0.1:1", "--spool", folder, "--port", "none",
                               "--host", "here"], stderr=subprocess.PIPE)
    bridge.stderr.readline()  # the spool is there, and there is no connection
    bridge.send_signal(signal.SIGTERM)
    bridge.communicate()
    with sqlite3.connect(pathlib.Path(folder, "jwbridge.db")) as database:
        now = time.time_ns() // 1000
        database.executemany("INSERT INTO payloads VALUES(?, ?, ?, ?)",
                             ((seq, now, b"S1:1.0", PAYLOAD) for seq in range(1, MESSAGES + 1)))
        database.execute("UPDATE numbers SET value = ? WHERE name = CAST('next' AS BLOB)", (MESSAGES + 1,))
    database.close()


def rate(start_publisher):
    """Returns how many messages a second arrive at the broker from the publisher, counted by a subscriber without
    output."""
    with Broker() as broker:
        subscriber = subprocess.Popen(["mosquitto_sub", "-V", "5", "-p", str(broker.port), "-t", "jw/+/boards/+/rx",
                                       "-C", str(MESSAGES), "-F", "", "-N"], stdout=subprocess.DEVNULL)
        time.sleep(0.5)
        start = time.monotonic()
        publisher = start_publisher(broker.port)
        subscriber.wait()
        seconds = time.monotonic() - start
        publisher.terminate()
        publisher.wait()
        return MESSAGES / seconds


def throughput(jwbridge, bench):
    bridge_rates, loop_rates = [], []
    for _ in range(ROUNDS):
        loop_rates.append(rate(lambda port: subprocess.Popen([bench / "publishloop", str(port), str(MESSAGES)])))
        with tempfile.TemporaryDirectory() as folder:
            make_spool(folder, jwbridge, None)
            bridge_rates.append(rate(lambda port: subprocess.Popen(
                [jwbridge, "--broker", f"mqtt://127.0.0.1:{port}", "--spool", folder, "--port", "none", "--host", "here"],
                stderr=subprocess.DEVNULL)))
    ratios = [bridge / loop for bridge, loop in zip(bridge_rates, loop_rates)]
    print(f"payloads a second from the spool: {statistics.median(bridge_rates):.0f}; "
          f"libmosquitto alone: {statistics.median(loop_rates):.0f}; "
          f"ratio {statistics.median(ratios):.2f} ({min(ratios):.2f} to {max(ratios):.2f})")


def boards(count):
    """Returns jwsim's options for boards that send about 100 payloads a second after a query, and their ports."""
    ports = [f"ttyACM{i}" for i in range(count)]
    options = []
    for port in ports:
        options += ["--board", f"BoardA,port={port},serial={port},replies=1000,chunk=26,gap=9"]
    return options, ports


def start_bridge(build, options, broker, spool):
    """Starts jwsim, with a bridge that sees jwsim's boards."""
    return subprocess.Popen([build / "simulator/jwsim/jwsim", *options, "--", build / "tools/jwbridge/jwbridge",
                             "--broker", f"mqtt://127.0.0.1:{broker.port}", "--spool", spool, "--host", "here"],
                            stderr=subprocess.DEVNULL)


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def bridge_of(jwbridge, spool):
    """Returns the process of the bridge that runs under jwsim."""
    while True:
        found = subprocess.run(["pgrep", "-f", f"^{jwbridge} .*{spool}"], stdout=subprocess.PIPE, text=True).stdout.split()
        if found:
            return int(found[0])
        time.sleep(0.05)


def reading(build, bench):
    options, ports = boards(BOARDS)
    alone = subprocess.run([build / "simulator/jwsim/jwsim", *options, "--", bench / "serialread", str(SECONDS * 1000),
                            *ports], stdout=subprocess.PIPE, check=True, text=True).stdout.split()
    jwbridge = build / "tools/jwbridge/jwbridge"
    with Broker() as broker, tempfile.TemporaryDirectory() as spool:
        subscriber = broker.subscribe(10000000, "%P")
        run = start_bridge(build, options, broker, spool)
        bridge = bridge_of(jwbridge, spool)
        while not subscriber.stdout.readline().startswith(b"time:"):
            pass
        os.set_blocking(subscriber.stdout.fileno(), False)
        time.sleep(1)
        subscriber.stdout.read()
        before = processor_seconds(bridge)
        start = time.monotonic()
        text = b""
        while time.monotonic() < start + SECONDS:
            time.sleep(0.01)  # more often than the pipe is full
            text += subscriber.stdout.read() or b""
        used = (processor_seconds(bridge) - before) / SECONDS
        run.terminate()
        run.wait()
        subscriber.kill()  # it ignores SIGTERM while it writes to a full pipe
        subscriber.wait()
    payloads = text.count(b"time:") / SECONDS
    print(f"{BOARDS} boards, {payloads / BOARDS:.0f} payloads a second each: jwbridge takes {used * 100:.1f} % of a core; "
          f"QSerialPort alone {float(alone[1]) / SECONDS * 100:.1f} %, for "
          f"{int(alone[0]) / (len(PAYLOAD) + 2) / SECONDS / BOARDS:.0f} payloads a second")


def latency(build):
    options, _ = boards(1)
    with Broker() as broker, tempfile.TemporaryDirectory() as spool:
        subscriber = broker.subscribe(900, "%U %P")
        run = start_bridge(build, options, broker, spool)
        lines = subscriber.communicate()[0].decode()
        run.terminate()
        run.wait()
    times = sorted(float(received) * 1000 - int(sent) / 1000
                   for received, sent in re.findall(r"^([0-9.]+) time:(\d+) ", lines, re.MULTILINE))
    print(f"from readyRead of the port to mosquitto_sub, {len(times)} payloads: median {statistics.median(times):.2f} ms, "
          f"99 % below {times[len(times) * 99 // 100]:.2f} ms, most {times[-1]:.2f} ms")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    build, bench = (pathlib.Path(path).resolve() for path in sys.argv[1:])
    throughput(build / "tools/jwbridge/jwbridge", bench)
    latency(build)
    reading(build, bench)


if __name__ == "__main__":
    main()

"""A receiver for a scenario: the broadcast, atsc-service and atsc-web as real processes."""

import copy
import json
import os
import signal
import socket
import subprocess
import time
import urllib.error
import urllib.request

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), *[os.pardir] * 3))
LINEUPS = os.path.join(ROOT, "tools", "lineups")
OWN_LINEUPS = os.path.join(os.path.dirname(__file__), "lineups")
# "City Morning" (TV-G) begins on 5-1 at 18:00, "The Long Lock" (TV-14-D-V) at 19:00 UTC.
EVENING = "2026-11-21T19:05:00Z"
AIR, CABLE = "metro-air", "metro-cable"


def until(condition, what, seconds=15, pause=0.02):
    """Waits until the condition returns something true, and returns that."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            shown = what() if callable(what) else what
            raise AssertionError(f"{seconds} s without: {shown}")
        time.sleep(pause)


def lineup(name):
    """Returns a lineup of the tree as an object that a scenario may change."""
    for folder in (OWN_LINEUPS, LINEUPS):
        path = os.path.join(folder, name + ".json")
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                return json.load(file)
    raise FileNotFoundError(name)


class Receiver:
    """Everything but the browser. Scenarios start the parts that they need."""

    def __init__(self, folder, build):
        self.folder = folder
        self.build = build
        self.air = os.path.join(folder, "air")
        self.db = os.path.join(folder, "db")
        self.processes = {}
        self.port = None
        self.origin = None
        self.start_time = None
        self.variables = {name: value for name, value in os.environ.items()
                          if not name.startswith(("ATSC_", "XDG_"))}
        self.variables.update(HOME=folder, SPDLOG_LEVEL="warn")

    def program(self, name):
        folder = "tools" if name == "psipmux" else "apps"
        return os.path.join(self.build, folder, name, name)

    def log(self, name):
        try:
            with open(os.path.join(self.folder, name + ".log"), encoding="utf-8",
                      errors="replace") as file:
                return file.read()
        except FileNotFoundError:
            return ""

    # -- broadcast

    def broadcast(self, *lineups, start=EVENING):
        """Puts lineups (names or objects) on the air."""
        self.start_time = start
        self._mux(lineups, self.air)

    def change(self, changed, frequency, start=None):
        """Replaces one carrier, at once, by that of a changed lineup. The receiver's clock runs on,
        unless the new stream starts at another time."""
        later = os.path.join(self.folder, "later")
        self.start_time = start or self.start_time
        self._mux([changed], later)
        kind = "vsb" if changed["medium"] == "air" else "qam"
        name = os.path.join(kind, f"{frequency}.ts")
        os.replace(os.path.join(later, name), os.path.join(self.air, name))

    def silence(self, kind, frequency):
        os.remove(os.path.join(self.air, kind, f"{frequency}.ts"))

    def _mux(self, lineups, out):
        files = []
        for number, one in enumerate(lineups):
            content = copy.deepcopy(one) if isinstance(one, dict) else lineup(one)
            files.append(os.path.join(self.folder, f"lineup{number}.json"))
            with open(files[-1], "w", encoding="utf-8") as file:
                json.dump(content, file)
        subprocess.run([self.program("psipmux"), "--start", self.start_time, "--out", out, *files],
                       check=True, env=self.variables)

    # -- processes

    def start(self, name, *options):
        with open(os.path.join(self.folder, name + ".log"), "ab") as log:
            self.processes[name] = subprocess.Popen(
                [self.program(name), "--db", self.db, *options], stdout=log, stderr=log,
                stdin=subprocess.DEVNULL, env=self.variables)
        return self.processes[name]

    def service(self, *options, dwell=0):
        """Starts the service; it is ready when this returns."""
        before = self.log("atsc-service").count("atsc-service: ready")
        process = self.start("atsc-service", "--air", self.air, "--dwell", str(dwell), *options)
        until(lambda: process.poll() is not None
              or self.log("atsc-service").count("atsc-service: ready") > before,
              "atsc-service ready")
        assert process.poll() is None, "atsc-service ended:\n" + self.log("atsc-service")

    def free_port(self):
        """Chooses the port of atsc-web."""
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.origin = f"http://127.0.0.1:{self.port}"
        return self.port

    def web(self, *options):
        """Starts atsc-web; it answers when this returns."""
        if not self.port:
            self.free_port()
        process = self.start("atsc-web", "--port", str(self.port), *options)

        def answers():
            assert process.poll() is None, "atsc-web ended:\n" + self.log("atsc-web")
            try:
                return self.request("/api/state")  # 401 with a token
            except OSError:
                return None

        until(answers, "atsc-web answers")

    def kill(self, name):
        """Ends a process as a crash would."""
        process = self.processes.pop(name)
        process.kill()
        process.wait()

    def stop(self, name):
        """Asks a process to end and returns its exit status."""
        process = self.processes.pop(name)
        process.send_signal(signal.SIGTERM)
        try:
            return process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            return "did not end within 10 s"

    def close(self):
        """Ends all processes, the service last; returns those that did not end well."""
        return [f"{name}: exit status {status}" for name in reversed(list(self.processes))
                for status in [self.stop(name)] if status != 0]

    # -- the interface of atsc-web, as a program uses it

    def request(self, path, body=None, **headers):
        if not isinstance(body, (bytes, type(None))):
            body = json.dumps(body).encode()
        headers = {name.replace("_", "-"): value for name, value in headers.items()}
        if body is not None:
            headers["Content-Type"] = "application/json"
        request = urllib.request.Request(self.origin + path, body, headers)
        try:
            with urllib.request.urlopen(request, timeout=20) as answer:
                return answer.status, json.load(answer)
        except urllib.error.HTTPError as error:
            with error:
                return error.code, json.loads(error.read() or b"null")

    def get(self, path):
        status, answer = self.request(path)
        assert status == 200, f"GET {path}: {status} {answer}"
        return answer

    def post(self, path, body):
        status, answer = self.request(path, body)
        assert status == 200, f"POST {path} {body}: {status} {answer}"
        return answer

    def state(self):
        return self.get("/api/state")

    def command(self, command_class, command, **keys):
        return self.post("/api/command", {"class": command_class, "command": command, **keys})

    def tune(self, major, minor, src="VSB"):
        self.command("FW", "CHANNELCHANGE", input=src, major=major, minor=minor)
        until(lambda: self.playing(major, minor), lambda: f"{major}-{minor}: {self.state()}")

    def playing(self, major, minor):
        state = self.state()
        channel = state["channel"]
        return (channel and (channel["major"], channel["minor"]) == (major, minor)
                and state["playing"] == "playing")

    def scan(self, src="VSB", **keys):
        """Scans without the page and waits for the channels and their guide."""
        self.command("SCAN", "start", src=src, **keys)
        until(lambda: (self.state()["scan"] or {}).get("over"), "end of the scan")
        until(lambda: self.get(f"/api/channels?src={src}")["channels"], "channels")
        until(lambda: self.get(f"/api/guide/span?src={src}").get("programmes"), "guide")

    def ready(self, *lineups, start=EVENING, web=(), service=("--fast",)):
        """A receiver in use: broadcast, service and atsc-web run, the channels are scanned."""
        self.broadcast(*(lineups or (AIR, CABLE)), start=start)
        self.service(*service)
        self.web(*web)
        self.scan("QAM" if lineups and lineups[0] == CABLE else "VSB")

    def memory(self, name):
        """Resident memory of a process, in bytes."""
        with open(f"/proc/{self.processes[name].pid}/status", encoding="utf-8") as file:
            return next(int(line.split()[1]) * 1024 for line in file if line.startswith("VmRSS"))

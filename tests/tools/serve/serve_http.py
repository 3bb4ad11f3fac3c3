#!/usr/bin/env python3
"""The preview server against what an attacker or an unlucky user sends, over HTTP against the
real server: the token, Host and Origin checks; every path a preview or a save names kept inside
the folder; the body limit in every transfer encoding; slow, idle and tokenless connections;
an exclusive port; files an editor cannot hold; read-only files; saving over a changed file;
recordings listed and played, their folders and files kept inside; and modules that crash, hang
or eat memory, with previews queued two at a time.

    serve_http.py RUNNER EXAMPLE_DIR MISBEHAVING_MODULE WORK_DIR sanitized|plain
"""
import http.client
import json
import os
import re
import shutil
import socket
import stat
import subprocess
import sys
import threading
import time

RUNNER, EXAMPLE, MISBEHAVING, WORK, BUILD = sys.argv[1:6]
SECRET = "SECRET-OUTSIDE-MARKER"
failures = []


def expect(what, got, want):
    if got != want:
        failures.append(f"{what}: got {got!r}, want {want!r}")


class Served:
    """A server on a copy of the example, on a free port."""

    def __init__(self, name, module=None, env=None, options=()):
        self.dir = os.path.join(WORK, name)
        shutil.rmtree(self.dir, ignore_errors=True)
        shutil.copytree(EXAMPLE, self.dir)
        command = [RUNNER, "serve", self.dir, "--listen", "127.0.0.1:0", *options]
        if module:
            command += ["--module", module]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True,
                                        env=dict(os.environ, **(env or {})))
        first, url = self.process.stdout.readline(), self.process.stdout.readline()
        found = re.search(r"http://(127\.0\.0\.1:(\d+))/\?token=(\w+)", url)
        assert found, first + url
        self.host, self.port, self.token = found.group(1), int(found.group(2)), found.group(3)

    def ask(self, method, path, body=None, token=True, headers=None, chunked=False):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        sent = {"Host": self.host}
        if token:
            sent["X-Formatv2-Token"] = self.token
        sent.update(headers or {})
        data = body if isinstance(body, (bytes, type(None))) else json.dumps(body).encode()
        if chunked:
            data = iter([data[k:k + 65536] for k in range(0, len(data), 65536)])
        try:
            connection.request(method, path, body=data, headers=sent, encode_chunked=chunked)
            response = connection.getresponse()
            raw = response.read()
        except (BrokenPipeError, ConnectionResetError):
            return None, b""  # the server stopped reading: no answer to read either
        finally:
            connection.close()
        try:
            return response.status, json.loads(raw)
        except ValueError:
            return response.status, raw

    def text(self, name):
        return open(os.path.join(self.dir, name), encoding="utf-8").read()

    def preview(self, scenario=None, config=None):
        body = {"config": self.text("algo_private.json") if config is None else config,
                "scenario": json.dumps(scenario) if scenario else self.text("scenario.json")}
        return self.ask("POST", "/api/preview", body)

    def save(self, name, text, version, extra=""):
        return self.ask("POST", f"/api/save?name={name}&version={version}{extra}", text.encode())

    def stop(self):
        self.process.kill()
        self.process.wait()


def connect(port):
    return socket.create_connection(("127.0.0.1", port), timeout=10)


def closed_by_server(sock, within):
    """Whether the server closes sock (reads end) within the seconds given."""
    sock.settimeout(within)
    try:
        while sock.recv(4096):
            pass
        return True
    except (socket.timeout, TimeoutError):
        return False
    except ConnectionResetError:
        return True


server = Served("guarded")
try:
    outside = os.path.join(WORK, "outside.json")
    with open(outside, "w") as f:
        f.write('{"ModuleName": "' + SECRET + '"}')
    os.symlink(outside, os.path.join(server.dir, "link.json"))
    os.symlink("/dev/zero", os.path.join(server.dir, "zero.json"))
    os.mkfifo(os.path.join(server.dir, "fifo.json"))
    # Each request differs from a good one in one point.
    cases = [
        ("no token", "GET", "/", None, False, {}, 401),
        ("a wrong token", "GET", "/?token=" + "0" * 32, None, False, {}, 401),
        ("a token in the query", "GET", "/?token=" + server.token, None, False, {}, 200),
        ("a foreign Host", "GET", "/api/files", None, True, {"Host": f"evil.example:{server.port}"}, 403),
        ("a name that ends like an address", "GET", "/api/files", None, True,
         {"Host": f"127.0.0.1.evil.example:{server.port}"}, 403),
        ("another port in Host (a tunnel)", "GET", "/api/files", None, True, {"Host": "127.0.0.1:1"}, 200),
        ("no port in Host (port 80)", "GET", "/api/files", None, True, {"Host": "127.0.0.1"}, 200),
        ("localhost as Host", "GET", "/api/files", None, True, {"Host": f"localhost:{server.port}"}, 200),
        ("a foreign Origin", "POST", "/api/preview", {"config": "{}"}, True,
         {"Origin": "http://evil.example"}, 403),
        ("the page's Origin", "POST", "/api/preview", {"config": "{}"}, True,
         {"Origin": f"http://{server.host}"}, 200),
        ("a path out of the routes", "GET", "/../../etc/passwd", None, True, {}, 404),
        ("another method", "PUT", "/api/save", b"x", True, {}, 404),
        ("a body at the limit", "POST", "/api/preview", b'{"config": "' + b"x" * (1024 * 1024 - 14) + b'"}',
         True, {}, 200),
        ("a body past the limit", "POST", "/api/preview", b"x" * (1024 * 1024 + 1), True, {}, 413),
        ("saving with ..", "POST", "/api/save?name=../outside.json&version=none", b"x", True, {}, 403),
        ("saving an absolute path", "POST", f"/api/save?name={outside}&version=none", b"x", True, {}, 403),
        ("saving through a link out", "POST", "/api/save?name=link.json&version=none", b"x", True, {}, 403),
        ("saving a file the page does not show", "POST", "/api/save?name=other.json&version=none",
         b"x", True, {}, 403),
    ]
    for what, method, path, body, token, headers, status in cases:
        expect(what, server.ask(method, path, body, token, headers)[0], status)
    expect("nothing written out of the folder", open(outside).read().count(SECRET), 1)

    # Chunked bodies past the limit are refused as they come, never read whole or written.
    huge = b'{"config": "' + b"x" * (20 << 20) + b'"}'
    for what, path in [("a chunked preview", "/api/preview"),
                       ("a chunked save", "/api/save?name=algo_private.json&version=none&force=1"),
                       ("a chunked body to no route", "/api/other")]:
        status, _ = server.ask("POST", path, huge, chunked=True)
        expect(what + " past the limit", status in (None, 404, 413), True)
    expect("a chunked save past the limit: the file", server.text("algo_private.json"),
           open(os.path.join(EXAMPLE, "algo_private.json")).read())

    # Every file a scenario names stays inside the folder; not one byte of another is read.
    scenario = json.loads(server.text("scenario.json"))
    for key, named, said in [("config", "/etc/passwd", "outside the folder served"),
                             ("config", outside, "outside the folder served"),
                             ("config", "link.json", "outside the folder served"),
                             ("runs[0].replace_config", "../outside.json", "outside the folder served"),
                             ("runs[0].replace_config", "zero.json", "outside the folder served"),
                             ("runs[0].replace_config", "fifo.json", "not a regular file")]:
        changed = json.loads(json.dumps(scenario))
        if key == "config":
            changed["config"] = named
        else:
            changed["runs"][0]["replace_config"] = named
        started = time.monotonic()
        status, answer = server.preview(changed)
        error = answer.get("scenario_error", {}).get("message", "") if isinstance(answer, dict) else ""
        expect(f"{key} naming {named}", (status, error.startswith(key + ": ") and said in error), (200, True))
        expect(f"{key} naming {named}: nothing of it", SECRET in json.dumps(answer), False)
        expect(f"{key} naming {named}: at once", time.monotonic() - started < 3, True)

    # Files an editor cannot hold exactly open read-only; the preview reads them from disk.
    with open(os.path.join(server.dir, "scenario.json"), "ab") as f:
        f.write(b"\n\x00")
    _, files = server.ask("GET", "/api/files")
    expect("a NUL byte: no text", files["scenario"]["text"], None)
    expect("a NUL byte: why", "NUL" in (files["scenario"]["readonly"] or ""), True)
    expect("a UTF-8 file: editable", (files["config"]["readonly"], files["config"]["writable"]), (None, True))
    status, answer = server.ask("POST", "/api/preview", {"config": None, "scenario": None})
    expect("a preview of the files on disk", (status, "error" in answer, len(answer["report"]["runs"])),
           (200, False, len(scenario["runs"])))

    # Saving: refused over a file changed since it was loaded, or over a read-only file unless
    # asked; then done byte for byte with a backup.
    listed = os.listdir(server.dir)
    config = files["config"]
    path = os.path.join(server.dir, config["name"])
    with open(path, "a") as changed:
        changed.write("\n")
    before = open(path, "rb").read()
    status, answer = server.save(config["name"], "{}", config["version"])
    expect("saving over a changed file", (status, open(path, "rb").read()), (409, before))
    version = answer["version"]
    os.chmod(path, 0o444)
    status, refused = server.save(config["name"], "{}", version)
    expect("saving a read-only file", (status, refused.get("readonly"), open(path, "rb").read()),
           (403, True, before))
    crlf = "{\r\n  \"a\": \"\u00a0\"\r\n}"
    status, answer = server.save(config["name"], crlf, version, "&unlock=1")
    expect("saving", (status, open(path, "rb").read(), open(path + "~", "rb").read()),
           (200, crlf.encode(), before))
    expect("saving keeps the mode", stat.S_IMODE(os.stat(path).st_mode), 0o444)
    expect("no temporary file left", sorted(os.listdir(server.dir)), sorted(listed + [config["name"] + "~"]))

    # Idle, slow and tokenless connections: a token holder is still answered within 1 s, and
    # the server drops them within their deadlines.
    idle = [connect(server.port) for _ in range(32)]
    slow = [connect(server.port) for _ in range(32)]
    for sock in slow:
        sock.sendall(b"GET / HTTP/1.1\r\nHost: " + server.host.encode() + b"\r\n")
    stop = threading.Event()

    def trickle():  # a header line every 0.5 s, as a slowloris client sends them
        while not stop.wait(0.5):
            for sock in slow:
                try:
                    sock.sendall(b"X-Slow: 1\r\n")
                except OSError:
                    pass

    dripping = threading.Thread(target=trickle)
    dripping.start()
    time.sleep(0.3)
    started = time.monotonic()
    status, _ = server.ask("GET", "/api/files")
    expect("answered beside 64 slow and idle connections", (status, time.monotonic() - started < 1),
           (200, True))
    expect("idle connections dropped", all(closed_by_server(s, 4) for s in idle), True)
    expect("slow headers dropped", all(closed_by_server(s, 4) for s in slow), True)
    stop.set()
    dripping.join()
    tokenless = connect(server.port)
    tokenless.sendall(b"GET /api/files HTTP/1.1\r\nHost: " + server.host.encode() + b"\r\n\r\n")
    expect("a tokenless connection ends with its answer", closed_by_server(tokenless, 1), True)
    for sock in idle + slow + [tokenless]:
        sock.close()

    # The port is the server's alone.
    second = subprocess.run([RUNNER, "serve", server.dir, "--listen", f"127.0.0.1:{server.port}"],
                            capture_output=True, text=True, timeout=10)
    expect("a second server on the port", (second.returncode, "Address already in use" in second.stderr),
           (2, True))
finally:
    server.stop()

# Recordings: the page lists the folders inside that hold one; a preview plays the newest runs
# of the one it names; a folder or file outside, a link out and a FIFO are refused unread.
def record(scenario, folder):
    """Records the scenario's runs into folder, as run --record does."""
    settings = os.path.join(WORK, "record.json")
    with open(settings, "w") as f:
        json.dump({"dir": folder}, f)
    path = os.path.join(WORK, "recorded.scenario.json")
    with open(path, "w") as f:
        json.dump(scenario, f)
    subprocess.run([RUNNER, "run", path, "--record", settings, "--log-level", "none"], check=True,
                   stdout=subprocess.DEVNULL)


server = Served("recordings")
try:
    scenario = json.loads(server.text("scenario.json"))
    scenario["config"] = os.path.join(server.dir, "algo_private.json")
    record(scenario, os.path.join(server.dir, "rec"))
    many = dict(scenario, runs=[dict(scenario["runs"][k % 2], name=f"run {k}") for k in range(205)])
    record(many, os.path.join(server.dir, "deep", "many"))
    secret = dict(scenario, runs=[dict(run, name=SECRET) for run in scenario["runs"]])
    outside = os.path.join(WORK, "outside-rec")
    shutil.rmtree(outside, ignore_errors=True)
    record(secret, outside)
    os.symlink(outside, os.path.join(server.dir, "linked-rec"))
    os.makedirs(os.path.join(server.dir, "leaky"))
    os.symlink(os.path.join(outside, os.listdir(outside)[0]), os.path.join(server.dir, "leaky", "a.fv2rec"))
    os.makedirs(os.path.join(server.dir, "fifo-rec"))
    os.mkfifo(os.path.join(server.dir, "fifo-rec", "a.fv2rec"))

    _, files = server.ask("GET", "/api/files")
    expect("the recordings listed", files["recordings"], ["deep/many", "rec"])
    body = {"config": server.text("algo_private.json"), "scenario": None}
    status, answer = server.ask("POST", "/api/preview", dict(body, recording="rec"))
    runs = answer["report"]["runs"]
    expect("a recording's runs", [(r["name"], r["recorded"]["same_config"]) for r in runs],
           [(r["name"], True) for r in scenario["runs"]])
    expect("a recording's runs the same", all(x["holds"] for r in runs for x in r["expect"]), True)
    status, answer = server.ask("POST", "/api/preview", dict(body, recording="deep/many"))
    shown = answer["recording"]
    expect("the newest runs of a long recording", (shown["runs"], shown["shown"], shown["cap"]), (205, 200, 200))
    names = [r["name"] for r in answer["report"]["runs"]]
    expect("the newest runs, in order", (names[0], names[-1]), ("run 5", "run 204"))
    for named, said in [("../outside-rec", "not a relative path"), (outside, "not a relative path"),
                        ("linked-rec", "outside the folder served"), ("leaky", "outside the folder served"),
                        ("fifo-rec", "not a regular file")]:
        started = time.monotonic()
        status, answer = server.ask("POST", "/api/preview", dict(body, recording=named))
        error = answer.get("recording_error", {}).get("message", "")
        expect(f"the recording {named}", (status, said in error), (200, True))
        expect(f"the recording {named}: nothing of it", SECRET in json.dumps(answer), False)
        expect(f"the recording {named}: at once", time.monotonic() - started < 3, True)
        expect(f"the recording {named}: no run", answer.get("report", {}).get("runs"), [])
    status, answer = server.ask("POST", "/api/preview", dict(body, recording=3))
    expect("a recording that is no name", status, 400)
finally:
    server.stop()

# A module that crashes, hangs or takes all memory ends that preview with an error, and the
# server goes on. In sanitizer builds the sanitizer's own SIGSEGV handler would turn the crash
# into an exit code, and the address space is not limited (the sanitizers reserve terabytes).
crash = {name: os.environ.get(name, "") + ":handle_segv=0" for name in ("ASAN_OPTIONS", "TSAN_OPTIONS")}
stopped = "did not end within"
misbehaving = [
    ("crash", "crashes", crash, "signal 11"),
    ("hang", "hangs", {"FORMATV2_TEST_HANG": "1"}, stopped),
    ("hang-closed", "closes its outputs and hangs", {"FORMATV2_TEST_HANG": "quiet"}, stopped)]
if BUILD == "plain":
    misbehaving.append(("hog", "takes all memory", {"FORMATV2_TEST_HOG": "1"}, "more than 64 MiB of memory"))
for name, what, env, said in misbehaving:
    server = Served(name, MISBEHAVING, env, ["--time-limit", "2", "--memory-limit", "64"])
    try:
        started = time.monotonic()
        status, answer = server.preview()
        expect(f"a module that {what}: status", status, 200)
        expect(f"a module that {what}: error", said in answer.get("error", ""), True)
        expect(f"a module that {what}: time", time.monotonic() - started < 10, True)
        expect(f"after a module that {what}", server.ask("GET", "/api/files")[0], 200)
    finally:
        server.stop()

# Two previews at once; a third waits, and a fourth takes its place.
server = Served("queue", MISBEHAVING, {"FORMATV2_TEST_HANG": "1"}, ["--time-limit", "1"])
try:
    answers = {}

    def ask(name):
        answers[name] = server.preview()

    threads = []
    for name in ["first", "second", "third", "fourth"]:
        threads.append(threading.Thread(target=ask, args=(name,)))
        threads[-1].start()
        time.sleep(0.25)
    for thread in threads:
        thread.join()
    said = {name: "superseded" if answer.get("superseded") else stopped in answer.get("error", "")
            for name, (_, answer) in answers.items()}
    expect("previews two at a time, the newest waiting", said,
           {"first": True, "second": True, "third": "superseded", "fourth": True})
finally:
    server.stop()

for failure in failures:
    print("FAIL:", failure)
print("serve_http:", "FAILED" if failures else "passed")
sys.exit(1 if failures else 0)

#!/usr/bin/env python3
"""The preview server's guards, over HTTP against the real server: the token, Host and Origin
checks, the body limit, paths leading out of the folder, saving over a changed file, and a
module that crashes or hangs.

    serve_http.py RUNNER EXAMPLE_DIR MISBEHAVING_MODULE WORK_DIR
"""
import http.client
import json
import os
import re
import shutil
import subprocess
import sys
import time

RUNNER, EXAMPLE, MISBEHAVING, WORK = sys.argv[1:5]
failures = []


def expect(what, got, want):
    if got != want:
        failures.append(f"{what}: got {got!r}, want {want!r}")


class Served:
    """A server on a copy of the example, on a free port."""

    def __init__(self, name, module=None, env=None):
        self.dir = os.path.join(WORK, name)
        shutil.rmtree(self.dir, ignore_errors=True)
        shutil.copytree(EXAMPLE, self.dir)
        command = [RUNNER, "serve", self.dir, "--listen", "127.0.0.1:0"]
        if module:
            command += ["--module", module]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True,
                                        env=dict(os.environ, **(env or {})))
        first, url = self.process.stdout.readline(), self.process.stdout.readline()
        found = re.search(r"http://(127\.0\.0\.1:(\d+))/\?token=(\w+)", url)
        assert found, first + url
        self.host, self.port, self.token = found.group(1), int(found.group(2)), found.group(3)

    def ask(self, method, path, body=None, token=True, headers=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        sent = {"Host": self.host}
        if token:
            sent["X-Formatv2-Token"] = self.token
        sent.update(headers or {})
        data = body if isinstance(body, (bytes, type(None))) else json.dumps(body).encode()
        connection.request(method, path, body=data, headers=sent)
        response = connection.getresponse()
        raw = response.read()
        connection.close()
        try:
            return response.status, json.loads(raw)
        except ValueError:
            return response.status, raw

    def preview(self):
        config = open(os.path.join(self.dir, "algo_private.json")).read()
        scenario = open(os.path.join(self.dir, "scenario.json")).read()
        return self.ask("POST", "/api/preview", {"config": config, "scenario": scenario})

    def stop(self):
        self.process.kill()
        self.process.wait()


server = Served("guarded")
try:
    outside = os.path.join(WORK, "outside.json")
    os.symlink(outside, os.path.join(server.dir, "link.json"))
    # Each request differs from a good one in one point.
    cases = [
        ("no token", "GET", "/", None, False, {}, 401),
        ("a wrong token", "GET", "/?token=" + "0" * 32, None, False, {}, 401),
        ("a token in the query", "GET", "/?token=" + server.token, None, False, {}, 200),
        ("a foreign Host", "GET", "/api/files", None, True, {"Host": f"evil.example:{server.port}"}, 403),
        ("a name that ends like an address", "GET", "/api/files", None, True,
         {"Host": f"127.0.0.1.evil.example:{server.port}"}, 403),
        ("another port in Host (a tunnel)", "GET", "/api/files", None, True, {"Host": "127.0.0.1:1"}, 200),
        ("localhost as Host", "GET", "/api/files", None, True, {"Host": f"localhost:{server.port}"}, 200),
        ("a foreign Origin", "POST", "/api/preview", {"config": "{}"}, True,
         {"Origin": "http://evil.example"}, 403),
        ("the page's Origin", "POST", "/api/preview", {"config": "{}"}, True,
         {"Origin": f"http://{server.host}"}, 200),
        ("a path out of the routes", "GET", "/../../etc/passwd", None, True, {}, 404),
        ("a body at the limit", "POST", "/api/preview", b'{"config": "' + b"x" * (1024 * 1024 - 14) + b'"}',
         True, {}, 200),
        ("a body past the limit", "POST", "/api/preview", b"x" * (1024 * 1024 + 1), True, {}, 413),
        ("saving with ..", "POST", "/api/save", {"name": "../outside.json", "text": "x", "version": "none"},
         True, {}, 403),
        ("saving an absolute path", "POST", "/api/save", {"name": outside, "text": "x", "version": "none"},
         True, {}, 403),
        ("saving through a link out", "POST", "/api/save", {"name": "link.json", "text": "x", "version": "none"},
         True, {}, 403),
        ("saving a file the page does not show", "POST", "/api/save",
         {"name": "other.json", "text": "x", "version": "none"}, True, {}, 403),
    ]
    for what, method, path, body, token, headers, status in cases:
        expect(what, server.ask(method, path, body, token, headers)[0], status)
    expect("nothing written out of the folder", os.path.exists(outside), False)

    # Saving: refused over a file changed since it was loaded, then done with a backup.
    listed = os.listdir(server.dir)
    _, files = server.ask("GET", "/api/files")
    config = files["config"]
    path = os.path.join(server.dir, config["name"])
    with open(path, "a") as changed:
        changed.write("\n")
    before = open(path).read()
    status, answer = server.ask("POST", "/api/save", {"name": config["name"], "text": "{}", "version": config["version"]})
    expect("saving over a changed file", (status, open(path).read()), (409, before))
    status, answer = server.ask("POST", "/api/save", {"name": config["name"], "text": "{}", "version": answer["version"]})
    expect("saving", (status, open(path).read(), open(path + "~").read()), (200, "{}", before))
    expect("no temporary file left", sorted(os.listdir(server.dir)), sorted(listed + [config["name"] + "~"]))
finally:
    server.stop()

# A module that crashes or hangs ends that preview with an error, and the server goes on. In
# sanitizer builds the sanitizer's own SIGSEGV handler would turn the crash into an exit code.
crash = {name: os.environ.get(name, "") + ":handle_segv=0" for name in ("ASAN_OPTIONS", "TSAN_OPTIONS")}
stopped = "did not end within"
for name, what, env, said in [
        ("crash", "crashes", crash, "signal 11"),
        ("hang", "hangs", {"FORMATV2_TEST_HANG": "1"}, stopped),
        ("hang-closed", "closes its outputs and hangs", {"FORMATV2_TEST_HANG": "quiet"}, stopped)]:
    server = Served(name, MISBEHAVING, env)
    try:
        started = time.monotonic()
        status, answer = server.preview()
        expect(f"a module that {what}: status", status, 200)
        expect(f"a module that {what}: error", said in answer.get("error", ""), True)
        expect(f"a module that {what}: time", time.monotonic() - started < 20, True)
        expect(f"after a module that {what}", server.ask("GET", "/api/files")[0], 200)
    finally:
        server.stop()

for failure in failures:
    print("FAIL:", failure)
print("serve_http:", "FAILED" if failures else "passed")
sys.exit(1 if failures else 0)

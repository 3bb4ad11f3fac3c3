#!/usr/bin/env python3
"""The installed runner's browser preview answers: the page, the folder's files and (unless
--no-preview) a preview of them whose first run is OK.

    serve_smoke.py FOLDER MODULE [--no-preview] -- RUNNER...
"""
import http.client
import json
import re
import subprocess
import sys

split = sys.argv.index("--")
folder, module, flags, runner = sys.argv[1], sys.argv[2], sys.argv[3:split], sys.argv[split + 1:]
server = subprocess.Popen(runner + ["serve", folder, "--listen", "127.0.0.1:0", "--module", module],
                          stdout=subprocess.PIPE, text=True)
try:
    server.stdout.readline()
    found = re.search(r"http://(127\.0\.0\.1:(\d+))/\?token=(\w+)", server.stdout.readline())
    assert found, "no URL printed"

    def ask(method, path, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", int(found.group(2)), timeout=60)
        connection.request(method, path, body=json.dumps(body) if body else None,
                           headers={"Host": found.group(1), "X-Formatv2-Token": found.group(3)})
        response = connection.getresponse()
        return response.status, response.read()

    status, page = ask("GET", "/")
    assert status == 200 and b"CodeMirror" in page, status
    status, files = ask("GET", "/api/files")
    files = json.loads(files)
    assert status == 200 and files["config"]["name"] == "algo_private.json", files
    if "--no-preview" not in flags:
        status, answer = ask("POST", "/api/preview", {"config": files["config"]["text"],
                                                      "scenario": files["scenario"]["text"]})
        runs = json.loads(answer)["report"]["runs"]
        assert status == 200 and runs[0]["verdict"] == "OK", answer
    print("serve_smoke: passed")
finally:
    server.kill()
    server.wait()

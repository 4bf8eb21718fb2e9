#!/usr/bin/env python3
"""Browser tests of the module's web pages against the real host, module, platform and a virtual microphone.

Starts a private PulseAudio server, bcast-platform with the demo site on free ports, and `bcast-host webui`;
then runs browser.test.mjs (Playwright's library driving Debian's Chromium) against the page address the
host prints; finally compares what the speakers recorded with the sentence spoken into the microphone.
Screenshots of the pages are left in --out.

    python3 tests/web/run_web_tests.py --build BUILD_DIR --out DIR
"""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "scripts"))
import demo  # noqa: E402  (process, PulseAudio and comparison helpers)

SENTENCE = "Attention please. The web console is speaking to the hall and the lobby."
TALK_ELEMENTS = "1001,1003"
CHROMIUM = "/usr/bin/chromium"


def fail(text):
    print("web tests: " + text, flush=True)
    sys.exit(1)


def read_line(path, prefix, timeout, what, proc):
    """Waits until the file `path` (a child's output) has a line starting with `prefix`; returns its rest."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        with open(path, encoding="utf-8", errors="replace") as f:
            for line in f:
                if line.startswith(prefix):
                    return line[len(prefix):].strip()
        if proc.poll() is not None:
            break
        time.sleep(0.05)
    with open(path, encoding="utf-8", errors="replace") as f:
        fail("%s did not start (no \"%s\" line):\n%s" % (what, prefix, f.read()[-4000:]))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--out", required=True)
    args = parser.parse_args()

    for need, hint in ((CHROMIUM, "Debian's chromium"), (os.path.join(HERE, "node_modules", "playwright-core"),
                                                         "npm playwright-core in tests/web")):
        if not os.path.exists(need):
            fail("%s is missing (%s); run scripts/setup.sh" % (need, hint))
    if shutil.which("node") is None:
        fail("node is missing; run scripts/setup.sh")
    os.makedirs(args.out, exist_ok=True)

    work = tempfile.mkdtemp(prefix="bcast-web-")
    procs = demo.Processes()
    ok = False
    try:
        client_env = demo.start_pulseaudio(procs, work)
        speakers = os.path.join(work, "speakers")
        os.makedirs(speakers)
        platform = procs.start("bcast-platform", [
            os.path.join(args.build, "bin", "bcast-platform"), "--fixture", os.path.join(ROOT, "fixtures", "demo-site.json"),
            "--listen", "127.0.0.1:0", "--sim-ports", "any", "--speaker-dir", speakers, "--log-level", "5"],
            stdout=open(os.path.join(args.out, "platform.log"), "w"), stderr=subprocess.STDOUT)
        rest = read_line(os.path.join(args.out, "platform.log"), "bcast-platform: REST listening on ", 30,
                         "the platform", platform)
        match = re.match(r"https?://([^:/]+):(\d+)", rest)
        if not match:
            fail("cannot read the platform's address from " + rest)

        with open(os.path.join(ROOT, "fixtures", "client-demo.json")) as f:
            config = json.load(f)
        config["Platform"]["Address"], config["Platform"]["Port"] = match.group(1), int(match.group(2))
        config["SysConfig"]["DataPath"] = os.path.join(work, "client")
        config_path = os.path.join(work, "client.json")
        with open(config_path, "w") as f:
            json.dump(config, f)
        host = procs.start("bcast-host", [os.path.join(args.build, "bin", "bcast-host"), "webui", "--config",
                                          config_path], env=client_env,
                           stdout=open(os.path.join(args.out, "host.out"), "w"),
                           stderr=open(os.path.join(args.out, "host.log"), "w"))
        page = read_line(os.path.join(args.out, "host.out"), "page: ", 60, "bcast-host webui", host)
        record_page = read_line(os.path.join(args.out, "host.out"), "record page: ", 10, "bcast-host webui", host)

        sentence = os.path.join(work, "sentence.wav")
        subprocess.run(["espeak-ng", "-v", "en", "-s", "150", "-w", sentence, SENTENCE], check=True)
        browser = subprocess.run(
            ["node", os.path.join(HERE, "browser.test.mjs"), "--page", page, "--record-page", record_page,
             "--sentence", sentence, "--out", args.out, "--chromium", CHROMIUM, "--talk", TALK_ELEMENTS],
            env=client_env, timeout=240)
        if browser.returncode != 0:
            fail("the browser steps failed (exit %d); screenshots and the host's log are in %s" %
                 (browser.returncode, args.out))
        demo.log("speakers (%s):" % speakers)
        ok = demo.compare(args.build, sentence, TALK_ELEMENTS, speakers, 0.5)
        if not ok:
            fail("the speakers did not play what the microphone heard")
        demo.log("web tests ok")
    finally:
        procs.stop_all()
        if ok:
            shutil.rmtree(work, ignore_errors=True)
        else:
            print("web tests: work directory kept: " + work, flush=True)


if __name__ == "__main__":
    main()

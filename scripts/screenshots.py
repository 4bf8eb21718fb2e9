#!/usr/bin/env python3
"""Takes the README's pictures of the operator console: starts the reference platform with the demo site,
runs `bcast-host gui --screenshot` under Xvfb and leaves one PNG per tab of the console in docs/screenshots.

    python3 scripts/screenshots.py [--build DIR] [--out DIR] [--language zh_CN]
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import demo  # noqa: E402  (the demo's platform and process helpers)

ROOT = demo.ROOT


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=os.path.join(ROOT, "build-release"))
    parser.add_argument("--out", default=os.path.join(ROOT, "docs", "screenshots"))
    parser.add_argument("--language", default="en_US")
    args = parser.parse_args()
    if shutil.which("xvfb-run") is None:
        sys.exit("screenshots: xvfb-run is missing; run scripts/setup.sh")

    work = tempfile.mkdtemp(prefix="bcast-screenshots-")
    procs = demo.Processes()
    try:
        demo.start_platform(procs, args.build, work)
        with open(os.path.join(ROOT, "fixtures", "client-demo.json")) as f:
            config = json.load(f)
        config["SysConfig"]["DataPath"] = os.path.join(work, "client")
        config["SysConfig"]["Language"] = args.language
        config_path = os.path.join(work, "client.json")
        with open(config_path, "w") as f:
            json.dump(config, f)
        env = dict(os.environ, QT_QPA_PLATFORM="xcb")
        # A sanitizer build keeps to the project's leak suppressions (the X11 plugin's D-Bus buffer).
        env.setdefault("LSAN_OPTIONS", "suppressions=" + os.path.join(ROOT, "tests", "lsan.supp"))
        result = subprocess.run(["xvfb-run", "-a", "-s", "-screen 0 1400x900x24",
                                 os.path.join(args.build, "bin", "bcast-host"), "gui", "--config", config_path,
                                 "--screenshot", args.out], env=env, timeout=120)
        if result.returncode != 0:
            sys.exit("screenshots: bcast-host gui failed with exit code %d" % result.returncode)
    finally:
        procs.stop_all()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()

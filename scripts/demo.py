#!/usr/bin/env python3
"""The main job: a live broadcast from a virtual microphone to simulated speakers on all three transports.

Starts the reference platform with the demo site, a private PulseAudio server whose null sink "vmic" is the
microphone, and the client host; talks a sentence made with espeak-ng to speakers reached through the
streaming server (1001), the device interface (1003, 1004) and RTP over UDP (1006); prints each status as it
arrives; stops after the sentence; then says where each speaker's WAV is and how well it matches what was
spoken. Every process it started is stopped, also on failure.
"""

import argparse
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SENTENCE = "Attention please. This is a broadcast test. The building will close in ten minutes."
ELEMENTS = "1001,1003,1004,1006"


def log(text):
    print(text, flush=True)


class Processes:
    """Every child this script starts, stopped in reverse order at the end."""

    def __init__(self):
        self.children = []

    def start(self, name, args, env=None, stdout=None, stderr=None):
        child = subprocess.Popen(args, env=env, stdout=stdout, stderr=stderr, start_new_session=True)
        self.children.append((name, child))
        return child

    def stop_all(self):
        for name, child in reversed(self.children):
            if child.poll() is None:
                child.send_signal(signal.SIGTERM)
                try:
                    child.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    os.killpg(child.pid, signal.SIGKILL)
                    child.wait()


def wait_for(condition, timeout, what):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if condition():
            return
        time.sleep(0.05)
    raise RuntimeError("timed out waiting for " + what)


def start_pulseaudio(procs, work):
    """A private PulseAudio server with a null sink "vmic" whose monitor is the default source."""
    pulse = os.path.join(work, "pulse")
    os.makedirs(pulse)
    socket = os.path.join(pulse, "native")
    with open(os.path.join(pulse, "server.pa"), "w") as f:
        f.write("load-module module-native-protocol-unix auth-anonymous=1 socket=%s\n" % socket)
        f.write("load-module module-null-sink sink_name=vmic rate=48000 channels=1\n")
        f.write("set-default-sink vmic\nset-default-source vmic.monitor\n")
    with open(os.path.join(pulse, "client.conf"), "w") as f:
        f.write("autospawn = no\n")
    with open(os.path.join(pulse, "asound.conf"), "w") as f:
        f.write("pcm.!default { type pulse }\nctl.!default { type pulse }\n")
    server_env = dict(os.environ, HOME=pulse, XDG_RUNTIME_DIR=pulse, XDG_CONFIG_HOME=pulse,
                      PULSE_RUNTIME_PATH=pulse, PULSE_STATE_PATH=pulse)
    procs.start("pulseaudio", ["pulseaudio", "--daemonize=no", "--exit-idle-time=-1", "--system=false", "-n",
                               "-F", os.path.join(pulse, "server.pa"), "--use-pid-file=no",
                               "--disallow-module-loading=no", "--log-target=stderr"],
                env=server_env, stdout=subprocess.DEVNULL, stderr=open(os.path.join(pulse, "log"), "w"))
    client_env = dict(os.environ, PULSE_SERVER="unix:" + socket,
                      PULSE_CLIENTCONFIG=os.path.join(pulse, "client.conf"), PULSE_SOURCE="vmic.monitor",
                      PULSE_SINK="vmic", ALSA_CONFIG_PATH="/usr/share/alsa/alsa.conf:" + os.path.join(pulse, "asound.conf"),
                      JACK_NO_START_SERVER="1")
    wait_for(lambda: subprocess.run(["pactl", "info"], env=client_env, stdout=subprocess.DEVNULL,
                                    stderr=subprocess.DEVNULL).returncode == 0, 15, "pulseaudio")
    # An idle null sink renders in long blocks; a little silence keeps it rendering in small ones.
    procs.start("keep-alive", ["pacat", "--playback", "-d", "vmic", "--raw", "--format=s16le", "--channels=1",
                               "--rate=8000", "--latency-msec=20", "/dev/zero"], env=client_env,
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return client_env


def start_platform(procs, build, work):
    speakers = os.path.join(work, "speakers")
    os.makedirs(speakers)
    out = open(os.path.join(work, "platform.out"), "w")
    platform = procs.start("bcast-platform", [os.path.join(build, "bin", "bcast-platform"), "--fixture",
                                              os.path.join(ROOT, "fixtures", "demo-site.json"), "--speaker-dir",
                                              speakers, "--log-level", "5"], stdout=out, stderr=out)
    wait_for(lambda: "push listening" in open(os.path.join(work, "platform.out")).read() or platform.poll() is not None,
             20, "the platform")
    if platform.poll() is not None:
        raise RuntimeError("the platform did not start:\n" + open(os.path.join(work, "platform.out")).read())
    return speakers


def describe(notification):
    """A short line for a notification of the module ("/Method" 0 started, 1 stopped, 2 speaker state)."""
    method = notification.get("Method")
    if method == 0:
        return "broadcast started"
    if method == 1:
        return "broadcast stopped"
    data = notification.get("Data", {})
    kind = {0: "stage", 1: "speaker", 2: "resource"}.get(data.get("NotifyType"), "?")
    text = "%-8s element %s: play state %s, status %s, work state %s" % (
        kind, data.get("ID"), data.get("PlayState"), data.get("ConnectState"), data.get("WorkState"))
    if data.get("ErrorInfo"):
        text += " (" + data["ErrorInfo"] + ")"
    return text


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", default=os.path.join(ROOT, "build"))
    parser.add_argument("--keep", action="store_true", help="keep the work directory")
    parser.add_argument("--min-correlation", type=float, default=0.5)
    args = parser.parse_args()

    work = tempfile.mkdtemp(prefix="bcast-demo-")
    procs = Processes()
    ok = False
    try:
        sentence = os.path.join(work, "sentence.wav")
        subprocess.run(["espeak-ng", "-v", "en", "-s", "150", "-w", sentence, SENTENCE], check=True)
        seconds = float(subprocess.run(["soxi", "-D", sentence], check=True, capture_output=True, text=True).stdout)
        log("sentence: %.1f s \"%s\"" % (seconds, SENTENCE))

        client_env = start_pulseaudio(procs, work)
        speakers = start_platform(procs, args.build, work)
        with open(os.path.join(ROOT, "fixtures", "client-demo.json")) as f:
            config = json.load(f)
        config["SysConfig"]["DataPath"] = os.path.join(work, "client")
        config["SysConfig"]["StderrLogLevel"] = 6
        config_path = os.path.join(work, "client.json")
        with open(config_path, "w") as f:
            json.dump(config, f)

        talk = seconds + 3.0
        host = procs.start("bcast-host", [os.path.join(args.build, "bin", "bcast-host"), "api",
                                          "StartIPSpeakerBroadcast",
                                          json.dumps({"Data": {"ElementIDs": ELEMENTS, "Mode": 0}}),
                                          "StopIPSpeakerBroadcast", "--wait", "%.1f" % talk, "--config", config_path],
                           env=client_env, stdout=subprocess.PIPE)
        player = None
        started = False
        for raw in host.stdout:
            line = raw.decode("utf-8", "replace").rstrip()
            if line.startswith("notification: "):
                notification = json.loads(line[len("notification: "):])
                log("  " + describe(notification))
                data = notification.get("Data", {})
                # Stage 5: the device senders start now; the microphone is already captured.
                if not started and data.get("NotifyType") == 0 and data.get("PlayState") == 5:
                    started = True
                    log("  speaking into the microphone")
                    player = procs.start("paplay", ["paplay", "-d", "vmic", sentence], env=client_env)
            else:
                log(line)
        host.wait()
        if player is not None:
            player.wait()
        if not started:
            raise RuntimeError("the broadcast never reached its devices (see the statuses above)")

        log("speakers (%s):" % speakers)
        ok = True
        for element in ELEMENTS.split(","):
            wav = os.path.join(speakers, element + ".wav")
            if not os.path.exists(wav):
                log("  %s: no recording" % element)
                ok = False
                continue
            result = subprocess.run([os.path.join(args.build, "bin", "bcast-tool"), "compare", sentence, wav,
                                     "--max-delay", "8", "--min-correlation", str(args.min_correlation)],
                                    capture_output=True, text=True)
            log("  %s: %s -> %s" % (element, wav, result.stdout.strip() or result.stderr.strip()))
            ok = ok and result.returncode == 0
        log("demo " + ("ok" if ok else "FAILED"))
    finally:
        procs.stop_all()
        if not args.keep and ok:
            shutil.rmtree(os.path.join(work, "pulse"), ignore_errors=True)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())

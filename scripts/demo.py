#!/usr/bin/env python3
"""The main job: a live broadcast from a virtual microphone to simulated speakers on all three transports.

Starts the reference platform with the demo site, a private PulseAudio server whose null sink "vmic" is the
microphone, and the client host; talks a sentence made with espeak-ng to speakers reached through the
streaming server (1001), the device interface (1003, 1004) and RTP over UDP (1006); prints each status as it
arrives; stops after the sentence; then says where each speaker's WAV is and how well it matches what was
spoken, and shows the recording of the talk that the module uploaded to the platform's object store.

With --file it first broadcasts from the media library: downloads a media file from the object store
(twice: the second time comes from the cache), plays it to the same speakers, then has the platform speak a
text at 1001 and 1006, and compares what each speaker played with the file and the text; the recorded live
talk follows.

With --devices, after the live talk it talks the same way to the gate's door station (201) and the entrance
camera (202), devices that are not IP speakers, printing each device's state, and compares what each
recorded with what was spoken.

Every process it started is stopped, also on failure.
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
import urllib.request

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SENTENCE = "Attention please. This is a broadcast test. The building will close in ten minutes."
ELEMENTS = "1001,1003,1004,1006"
CONTROL = "http://127.0.0.1:18650/_control"
MEDIA_FILE_ID = 4  # "evacuation", stored in the object store of storage server 501
TTS_TEXT = "Visitors are kindly asked to leave their bags at the reception."
TTS_ELEMENTS = "1001,1006"
DEVICES = "201,202"  # the gate's door station and the entrance camera
DEVICE_SENTENCE = "Visitor at the gate. Please open the barrier."


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
    data = notification.get("Data", {})
    if method == 0:
        return "broadcast started"
    if method == 1:
        return "broadcast stopped"
    if method == 4:
        return "resource download failed: %s" % data.get("ErrorInfo", "")
    if method == 5:
        if data.get("ErrorCode", 0) == 0:
            return "recording uploaded: %s" % data.get("RecordFilePath")
        return "recording not uploaded (%s), kept at %s" % (data.get("ErrorInfo"), data.get("RecordFilePath"))
    if method == 6:
        failed = data.get("ErrorList", [])
        if not failed:
            return "text to speech started at every speaker"
        return "text to speech did not start at " + ", ".join(
            "%s (%s)" % (e.get("ElementID"), e.get("ErrorInfo")) for e in failed)
    if method == 7:
        if data.get("ErrorCode", 0) == 0:
            return "device broadcast started to %s" % data.get("DeviceIDs")
        return "device broadcast to %s did not start: %s" % (data.get("DeviceIDs"), data.get("ErrorInfo"))
    if method == 8:
        return "device %s: status %s%s" % (data.get("ID"), data.get("Status"),
                                           " (%s)" % data["ErrorInfo"] if data.get("ErrorInfo") else "")
    kind = {0: "stage", 1: "speaker", 2: "resource"}.get(data.get("NotifyType"), "?")
    text = "%-8s element %s: play state %s, status %s, work state %s" % (
        kind, data.get("ID"), data.get("PlayState"), data.get("ConnectState"), data.get("WorkState"))
    if data.get("ErrorInfo"):
        text += " (" + data["ErrorInfo"] + ")"
    return text


class Host:
    """Runs bcast-host commands with the demo's configuration and prints what they print."""

    def __init__(self, procs, build, config_path, env):
        self.procs, self.build, self.config_path, self.env = procs, build, config_path, env

    def run(self, args, on_notification=None):
        """Runs `bcast-host ARGS`; returns (exit code, notifications, web messages) as parsed JSON."""
        host = self.procs.start("bcast-host", [os.path.join(self.build, "bin", "bcast-host")] + args +
                                ["--config", self.config_path], env=self.env, stdout=subprocess.PIPE)
        notifications, web_messages = [], []
        for raw in host.stdout:
            line = raw.decode("utf-8", "replace").rstrip()
            if line.startswith("notification: "):
                notification = json.loads(line[len("notification: "):])
                notifications.append(notification)
                log("  " + describe(notification))
                if on_notification is not None:
                    on_notification(notification)
            elif line.startswith("web message"):
                web_messages.append(json.loads(line[line.index("{"):]))
                log("  " + line)
            else:
                log(line)
        return host.wait(), notifications, web_messages


def compare(build, reference, elements, speakers, min_correlation):
    """Compares each speaker's WAV with the reference; true when every one matches."""
    ok = True
    for element in elements.split(","):
        wav = os.path.join(speakers, element + ".wav")
        if not os.path.exists(wav):
            log("  %s: no recording" % element)
            ok = False
            continue
        result = subprocess.run([os.path.join(build, "bin", "bcast-tool"), "compare", reference, wav,
                                 "--max-delay", "8", "--min-correlation", str(min_correlation)],
                                capture_output=True, text=True)
        log("  %s: %s -> %s" % (element, wav, result.stdout.strip() or result.stderr.strip()))
        ok = ok and result.returncode == 0
    return ok


def platform_records():
    with urllib.request.urlopen(CONTROL + "/broadcasts", timeout=10) as answer:
        return json.load(answer)["ResponseStatus"]["Data"]["Records"]


def live_talk(host, work, speakers, args, client_env, procs):
    """Talks a sentence into the virtual microphone; the talk is recorded and uploaded."""
    sentence = os.path.join(work, "sentence.wav")
    subprocess.run(["espeak-ng", "-v", "en", "-s", "150", "-w", sentence, SENTENCE], check=True)
    seconds = float(subprocess.run(["soxi", "-D", sentence], check=True, capture_output=True, text=True).stdout)
    log("sentence: %.1f s \"%s\"" % (seconds, SENTENCE))

    players = []

    def speak_when_devices_start(notification):
        data = notification.get("Data", {})
        # Stage 5: the device senders start now; the microphone is already captured.
        if not players and notification.get("Method") == 2 and data.get("NotifyType") == 0 and \
                data.get("PlayState") == 5:
            log("  speaking into the microphone")
            players.append(procs.start("paplay", ["paplay", "-d", "vmic", sentence], env=client_env))

    host.run(["api", "StartIPSpeakerBroadcast", json.dumps({"Data": {"ElementIDs": ELEMENTS, "Mode": 0}}),
              "StopIPSpeakerBroadcast", "--wait", "%.1f" % (seconds + 3.0)], speak_when_devices_start)
    for player in players:
        player.wait()
    if not players:
        raise RuntimeError("the broadcast never reached its devices (see the statuses above)")

    log("speakers (%s):" % speakers)
    ok = compare(args.build, sentence, ELEMENTS, speakers, args.min_correlation)
    records = platform_records()
    # The platform's broadcast records: the played media files (mode 1) and the recorded talks (mode 0).
    talks = [r for r in records if r["BroadcastMode"] == 0]
    for record in records:
        what = "recorded talk" if record["BroadcastMode"] == 0 else "media file played"
        log("record %s, %s at %s: %s, %s bytes in store %s" % (
            record["RecordID"], what, record["ElementIDs"], record["StoreUrl"], record["Bytes"], record["Store"]))
    if not talks:
        log("the talk's recording is not registered at the platform")
    return ok and bool(talks)


def device_talk(host, work, speakers, args, client_env, procs):
    """Talks a sentence into the virtual microphone to the door station and the camera (not IP speakers)."""
    sentence = os.path.join(work, "device-sentence.wav")
    subprocess.run(["espeak-ng", "-v", "en", "-s", "150", "-w", sentence, DEVICE_SENTENCE], check=True)
    seconds = float(subprocess.run(["soxi", "-D", sentence], check=True, capture_output=True, text=True).stdout)
    log("device talk to %s: %.1f s \"%s\"" % (DEVICES, seconds, DEVICE_SENTENCE))
    players = []

    def speak_when_a_device_plays(notification):
        if not players and notification.get("Method") == 8 and notification.get("Data", {}).get("Status") == 1:
            log("  speaking into the microphone")
            players.append(procs.start("paplay", ["paplay", "-d", "vmic", sentence], env=client_env))

    code, _, _ = host.run(["device-talk", DEVICES, "--wait", "%.1f" % (seconds + 2.0)], speak_when_a_device_plays)
    for player in players:
        player.wait()
    if code != 0 or not players:
        raise RuntimeError("the device talk failed (see above)")
    log("devices (%s):" % speakers)
    return compare(args.build, sentence, ",".join("device-" + d for d in DEVICES.split(",")), speakers,
                   args.min_correlation)


def file_broadcast(host, work, speakers, args):
    """Downloads a media file, plays it, and has the platform speak a text."""
    path = None
    module_log = os.path.join(work, "client", "log", "bcast-host.log")
    for attempt in ("downloading media file %d", "asking for media file %d again"):
        log(attempt % MEDIA_FILE_ID)
        code, _, messages = host.run(["web", "DownloadMediaFile", json.dumps({"Data": {"FileID": MEDIA_FILE_ID}})])
        finished = [m["Data"] for m in messages if m.get("Method") == "DownloadShoutFileFinished"]
        if code != 0 or not finished or not finished[0].get("FilePath") or \
                not os.path.exists(finished[0]["FilePath"]):
            raise RuntimeError("the download failed (see above)")
        path = finished[0]["FilePath"]
        # The module's last word on it says whether the object store was asked or the cache answered.
        with open(module_log, errors="replace") as f:
            said = [line for line in f if "download file Succ" in line or "Get download file path" in line]
        where = "from the object store" if said and "download file Succ" in said[-1] else "from the local cache"
        log("  %s: %d bytes, %s" % (path, os.path.getsize(path), where))

    reference = os.path.join(work, "media.wav")
    subprocess.run(["ffmpeg", "-loglevel", "error", "-y", "-i", path, "-ac", "1", reference], check=True)
    log("playing %s to %s" % (os.path.basename(path), ELEMENTS))
    code, _, _ = host.run(["api", "StartIPSpeakerBroadcast",
                           json.dumps({"Data": {"ElementIDs": ELEMENTS, "Mode": 1, "MediaFilePath": path}})])
    if code != 0:
        raise RuntimeError("the file broadcast failed (see above)")
    log("speakers (%s):" % speakers)
    ok = compare(args.build, reference, ELEMENTS, speakers, args.min_correlation)

    spoken = os.path.join(work, "tts.wav")
    subprocess.run(["espeak-ng", "-v", "en-us", "-w", spoken, TTS_TEXT], check=True)
    seconds = float(subprocess.run(["soxi", "-D", spoken], check=True, capture_output=True, text=True).stdout)
    log("text to speech at %s: \"%s\"" % (TTS_ELEMENTS, TTS_TEXT))
    code, _, _ = host.run(["api", "StartTTSBroadcast",
                           json.dumps({"Data": {"ElementIDs": TTS_ELEMENTS, "CustomContent": TTS_TEXT,
                                                "Language": "en-US", "PlayMode": 0, "AssignPlaybackDuration": ""}}),
                           "StopIPSpeakerBroadcast", "--wait", "%.1f" % (seconds + 2.0)])
    if code != 0:
        raise RuntimeError("the text to speech failed (see above)")
    log("speakers (%s):" % speakers)
    return compare(args.build, spoken, TTS_ELEMENTS, speakers, args.min_correlation) and ok


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=os.path.join(ROOT, "build"))
    parser.add_argument("--keep", action="store_true", help="keep the work directory")
    parser.add_argument("--file", action="store_true",
                        help="first download and play a media file and speak a text, then the live talk")
    parser.add_argument("--devices", action="store_true",
                        help="after the live talk, talk to the door station and the camera (device broadcast)")
    parser.add_argument("--min-correlation", type=float, default=0.5)
    args = parser.parse_args()

    work = tempfile.mkdtemp(prefix="bcast-demo-")
    procs = Processes()
    ok = False
    try:
        client_env = start_pulseaudio(procs, work)
        speakers = start_platform(procs, args.build, work)
        with open(os.path.join(ROOT, "fixtures", "client-demo.json")) as f:
            config = json.load(f)
        config["SysConfig"]["DataPath"] = os.path.join(work, "client")
        config["SysConfig"]["StderrLogLevel"] = 6
        config_path = os.path.join(work, "client.json")
        with open(config_path, "w") as f:
            json.dump(config, f)
        host = Host(procs, args.build, config_path, client_env)
        ok = file_broadcast(host, work, speakers, args) if args.file else True
        ok = live_talk(host, work, speakers, args, client_env, procs) and ok
        if args.devices:
            ok = device_talk(host, work, speakers, args, client_env, procs) and ok
        log("demo " + ("ok" if ok else "FAILED"))
    finally:
        procs.stop_all()
        if not args.keep and ok:
            shutil.rmtree(os.path.join(work, "pulse"), ignore_errors=True)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""ONVIF RTSP server for voice-talk tests (GStreamer's RTSPOnvifServer).

Mounts:
  /talk       backchannel only (PCMU 8000 Hz): what the client sends is written to a file
  /talk-mp3   backchannel only (MPEG audio, MPA)
  /listen     a tone downstream (PCMU 8000 Hz), no backchannel: the backchannel requirement is answered with 551
  /both       the tone downstream and a PCMU backchannel

The backchannel passes the server's jitter buffer (the media latency, 200 ms): audio still in it when the
client tears the stream down is dropped, so a test waits for its file to be complete before stopping.

Everything the test needs to know goes to stdout, one event per line, flushed at once:
  READY port=<port>
  BACKCHANNEL mount=<path> file=<file>        a backchannel media was configured; its audio goes to <file>
  REQUEST method=<method> uri=<uri> token=<value of X-Token or ->
  MEDIA-DONE mount=<path> file=<file>         the media was torn down (the file is complete)
  SESSION-EXPIRED idle=<seconds>              a session had no accepted request within the time-out

Options: --port (0: any free port), --out-dir (backchannel files), --user/--password (digest authentication for
every mount), --token (requests without this X-Token header are refused with 401), --tone-hz,
--session-timeout (seconds: announced in the Session header and enforced strictly, so that only accepted
RTSP requests keep a session alive, not the media flowing),
--max-lifetime (seconds; the server also ends when its parent process goes away).

Run with /usr/bin/python3 (it needs the gi bindings of the distribution).
"""

import argparse
import itertools
import os
import signal
import sys
import time

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtsp", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtsp, GstRtspServer  # noqa: E402

BACKCHANNEL_PCMU = (
    '( capsfilter caps="application/x-rtp, media=(string)audio, payload=(int)0, clock-rate=(int)8000, '
    'encoding-name=(string)PCMU" name=depay_backchannel ! rtppcmudepay ! '
    "filesink name=backchannel_sink location=/dev/null buffer-mode=unbuffered sync=false async=false )"
)
BACKCHANNEL_MPA = (
    '( capsfilter caps="application/x-rtp, media=(string)audio, payload=(int)14, clock-rate=(int)90000, '
    'encoding-name=(string)MPA" name=depay_backchannel ! rtpmpadepay ! '
    "filesink name=backchannel_sink location=/dev/null buffer-mode=unbuffered sync=false async=false )"
)
# A media needs at least one element; this one produces no stream.
NO_DOWNSTREAM = "( fakesrc num-buffers=0 ! fakesink async=false )"


def emit(text):
    sys.stdout.write(text + "\n")
    sys.stdout.flush()


def tone_launch(tone_hz):
    return (
        "( audiotestsrc is-live=true wave=sine freq=%d volume=0.5 samplesperbuffer=160 ! "
        "audio/x-raw,rate=8000,channels=1 ! mulawenc ! rtppcmupay name=pay0 pt=0 )" % tone_hz
    )


class Server:
    def __init__(self, args):
        self.args = args
        self.counter = itertools.count(1)
        self.sessions = {}
        self.last_accepted = {}
        self.server = GstRtspServer.RTSPOnvifServer.new()
        self.server.set_address("127.0.0.1")
        self.server.set_service(str(args.port))
        self.server.connect("client-connected", self.on_client_connected)
        if args.user:
            auth = GstRtspServer.RTSPAuth()
            auth.set_supported_methods(GstRtsp.RTSPAuthMethod.DIGEST)
            token = GstRtspServer.RTSPToken()
            token.set_string(GstRtspServer.RTSP_TOKEN_MEDIA_FACTORY_ROLE, "user")
            auth.add_digest(args.user, args.password, token)
            self.server.set_auth(auth)
        mounts = self.server.get_mount_points()
        mounts.add_factory("/talk", self.factory("/talk", NO_DOWNSTREAM, BACKCHANNEL_PCMU))
        mounts.add_factory("/talk-mp3", self.factory("/talk-mp3", NO_DOWNSTREAM, BACKCHANNEL_MPA))
        mounts.add_factory("/listen", self.factory("/listen", tone_launch(args.tone_hz), None))
        mounts.add_factory("/both", self.factory("/both", tone_launch(args.tone_hz), BACKCHANNEL_PCMU))

    def factory(self, mount, launch, backchannel):
        factory = GstRtspServer.RTSPOnvifMediaFactory.new()
        factory.set_media_gtype(GstRtspServer.RTSPOnvifMedia)
        factory.set_launch(launch)
        factory.set_shared(False)
        if backchannel:
            factory.set_backchannel_launch(backchannel)
        if self.args.user:
            factory.add_role_from_structure(
                Gst.Structure.from_string(
                    "user, media.factory.access=(boolean)true, media.factory.construct=(boolean)true"
                )[0]
            )
        factory.connect("media-configure", self.on_media_configure, mount)
        return factory

    def on_media_configure(self, factory, media, mount):
        sink = media.get_element().get_by_name("backchannel_sink")
        if sink is None:
            return
        path = os.path.join(self.args.out_dir, "%s-%d.bin" % (mount.strip("/"), next(self.counter)))
        sink.set_property("location", path)
        emit("BACKCHANNEL mount=%s file=%s" % (mount, path))
        media.connect("unprepared", lambda m: emit("MEDIA-DONE mount=%s file=%s" % (mount, path)))

    def on_client_connected(self, server, client):
        for name in ("options", "describe", "setup", "play", "teardown", "get-parameter", "set-parameter"):
            client.connect("pre-%s-request" % name, self.on_request, name.upper().replace("-", "_"))
        client.connect("new-session", self.on_new_session)

    def on_new_session(self, client, session):
        if self.args.session_timeout > 0:
            session.set_timeout(self.args.session_timeout)
            self.sessions[client] = session
            self.last_accepted[client] = time.monotonic()

    def on_request(self, client, ctx, method):
        result, value = ctx.request.get_header_by_name("X-Token", 0)
        token = value if result == GstRtsp.RTSPResult.OK else None
        uri = ctx.uri.get_request_uri() if ctx.uri is not None else "-"
        emit("REQUEST method=%s uri=%s token=%s" % (method, uri, token if token is not None else "-"))
        if self.args.token and token != self.args.token:
            return GstRtsp.RTSPStatusCode.UNAUTHORIZED
        self.last_accepted[client] = time.monotonic()
        return GstRtsp.RTSPStatusCode.OK

    def expire_sessions(self):
        now = time.monotonic()
        pool = self.server.get_session_pool()
        for client, session in list(self.sessions.items()):
            if pool.find(session.get_sessionid()) is None:  # torn down by the client
                del self.sessions[client]
                continue
            idle = now - self.last_accepted.get(client, now)
            if idle > self.args.session_timeout:
                emit("SESSION-EXPIRED idle=%.1f" % idle)
                del self.sessions[client]
                client.close()
                pool.remove(session)
        return True

    def run(self):
        if self.server.attach(None) == 0:
            emit("ERROR cannot listen")
            return 1
        emit("READY port=%d" % self.server.get_bound_port())
        loop = GLib.MainLoop()
        parent = os.getppid()

        def watchdog():
            if os.getppid() != parent:
                loop.quit()
                return False
            return True

        GLib.timeout_add(500, watchdog)
        if self.args.session_timeout > 0:
            GLib.timeout_add(100, self.expire_sessions)
        GLib.timeout_add_seconds(self.args.max_lifetime, loop.quit)
        GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, loop.quit)
        GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGINT, loop.quit)
        loop.run()
        return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--out-dir", default=".")
    parser.add_argument("--user", default="")
    parser.add_argument("--password", default="")
    parser.add_argument("--token", default="")
    parser.add_argument("--tone-hz", type=int, default=1000)
    parser.add_argument("--max-lifetime", type=int, default=600)
    parser.add_argument("--session-timeout", type=int, default=0)
    args = parser.parse_args()
    Gst.init(None)
    return Server(args).run()


if __name__ == "__main__":
    sys.exit(main())

#pragma once
// bcast-tool subcommands for RTP over UDP: send a WAV file or a tone to a speaker address, receive and check
// a stream and write it as WAV.

/// bcast-tool rtp-send --to HOST:PORT (--wav FILE | --tone HZ [--seconds S]); argv holds the arguments after
/// the command name. Returns the exit status.
int RunRtpSend(int argc, char** argv);
/// bcast-tool rtp-recv --port N [--out FILE.wav] [--idle S] [--max-seconds S]; arguments after the name.
int RunRtpRecv(int argc, char** argv);

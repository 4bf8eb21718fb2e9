#include "tool/rtp/RtpCommands.h"

#include "tool/ToolCommand.h"

namespace BcastTool {

void AddRtpCommands(CommandList& commands) {
    commands.push_back({"rtp-send", "--to HOST:PORT (--wav FILE | --tone HZ [--seconds S]) [--level DBFS]",
                        "send 8000 Hz G.711 u-law in 40 ms RTP packets, paced in real time", &RunRtpSend});
    commands.push_back(
        {"rtp-recv", "--port N [--bind ADDR] [--out FILE.wav] [--wait S] [--idle S]",
         "receive an RTP stream, check sequence, marker, time stamps and pacing, write it as WAV",
         &RunRtpRecv});
}

}  // namespace BcastTool

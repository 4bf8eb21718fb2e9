<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
<context>
    <name>BroadCastPlugin::CBroadCastWgtManager</name>
    <message>
        <source>Stopped</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>update pushed: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CBroadcastConsole</name>
    <message>
        <source>Stop all</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Idle</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Live talk</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Te&amp;xt</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Li&amp;sten</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Devices</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop the broadcast, the listen and the device talk</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Event log</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live talk</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Playing a file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speaking text</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The broadcast could not be stopped.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stopping...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live talk is not allowed for your account.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The site could not be loaded: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>site loaded</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 failed: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The broadcast stopped with an error: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>broadcast stopped</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CBroadcastPanel</name>
    <message>
        <source>Broadcast</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CBroadcastPopDialog</name>
    <message>
        <source>Broadcast</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Play a file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speak a text</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Listen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Talk to devices</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live talk</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 to %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>, volume %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not on this site: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CDeviceTab</name>
    <message>
        <source>Connecting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Playing</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stopped</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Talk to devices</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Device</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Address</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>State</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>More device ids, such as 202,203</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Device %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The device broadcast could not be started.</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>Starting the talk to %n devices...</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>device talk to %n devices</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>Device talk stopped.</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>Talking to %n devices.</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>Speak now: the devices are listening.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The device talk failed: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live talk is not allowed for your account.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CFileTab</name>
    <message>
        <source>Search</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show all</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Local file...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Download</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Play</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Search the media library</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Name</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Format</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Duration</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Size</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Media library</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The media library cannot be searched now.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Choose an audio file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Audio files (*.wav *.mp3)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Library: %1.%2%3</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> (not downloaded)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> (downloaded)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Local file: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The download could not be started.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Downloading %1 to the local audio cache...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The download failed: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Downloaded to the local audio cache.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The search failed: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>%n files found.</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>Choose the speakers to play to first.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The file could not be played.</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>file %1 to %n speakers</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>Preparing the file...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Playing...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The file was played.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The file did not play on %1 of the speakers.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Broadcasting is not allowed for your account.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 of %2 KB</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CListenTab</name>
    <message>
        <source>Listen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speaker to listen to</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Level of what is heard</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speaker</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Heard</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The listen could not be started.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connecting to %1...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cannot listen: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cannot listen to %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Listening to %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>listening to %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not listening.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The listen stopped with an error: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop listening</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Listening is not allowed for your account.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Listening volume</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Volume</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CPromptBar</name>
    <message>
        <source>Close the message</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CSpeakerPicker</name>
    <message>
        <source>Choose shown</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Clear</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Search name or address</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>State filter</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>All states</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Partition filter</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speakers by partition</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>All partitions</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 of %2 speakers chosen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> (%1 shown)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>All speakers idle</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CSpeakerTreeModel</name>
    <message>
        <source>Outside partitions</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Prompt tone</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>%n playing</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>Speaker</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>State</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Address</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Area</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CTalkTab</name>
    <message>
        <source>Push to talk: hold the button or the space bar</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Microphone level</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Microphone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Your account may not talk live.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Choose the speakers to talk to first.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The talk could not be started.</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>talk started to %n speakers</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>Stop talking</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Hold to talk</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Talk</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live talk is not allowed for your account (no live broadcast right). Ask an administrator to grant it.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Another broadcast is running.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Choose speakers and press Talk.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live talks are recorded and stored on the platform.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live talks are not recorded.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connecting to the speakers...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Prompt tone played.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speak now.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speak now: the speakers are listening.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>On air at %1 of %2 speakers.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording this talk</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CTextTab</name>
    <message>
        <source>Speak</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Text the speakers say</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Text to speak</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Language</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speaker</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Result</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The text is too long (at most %1 characters).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The text could not be sent.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sent</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>text to %n speakers</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>Sending the text to the platform...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not played: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No speaker can say the text.</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>The platform speaks the text on %n speakers.</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n speakers cannot say the text.</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>Speaking</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Finished</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The text was spoken.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stopped</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not started</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Broadcasting is not allowed for your account.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::SpeakerState</name>
    <message>
        <source>Idle</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connecting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Playing</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Offline</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>

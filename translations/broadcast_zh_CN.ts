<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name>BroadCastPlugin::CBroadCastWgtManager</name>
    <message>
        <source>Stopped</source>
        <translation>已停止</translation>
    </message>
    <message>
        <source>update pushed: %1</source>
        <translation>收到推送更新：%1</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CBroadcastConsole</name>
    <message>
        <source>Stop all</source>
        <translation>全部停止</translation>
    </message>
    <message>
        <source>Idle</source>
        <translation>空闲</translation>
    </message>
    <message>
        <source>&amp;Live talk</source>
        <translation>实时喊话(&amp;L)</translation>
    </message>
    <message>
        <source>&amp;Files</source>
        <translation>文件广播(&amp;F)</translation>
    </message>
    <message>
        <source>Te&amp;xt</source>
        <translation>文本广播(&amp;X)</translation>
    </message>
    <message>
        <source>Li&amp;sten</source>
        <translation>监听(&amp;S)</translation>
    </message>
    <message>
        <source>&amp;Devices</source>
        <translation>设备喊话(&amp;D)</translation>
    </message>
    <message>
        <source>Stop the broadcast, the listen and the device talk</source>
        <translation>停止广播、监听和设备喊话</translation>
    </message>
    <message>
        <source>Event log</source>
        <translation>事件日志</translation>
    </message>
    <message>
        <source>Live talk</source>
        <translation>实时喊话</translation>
    </message>
    <message>
        <source>Playing a file</source>
        <translation>正在播放文件</translation>
    </message>
    <message>
        <source>Speaking text</source>
        <translation>正在播报文本</translation>
    </message>
    <message>
        <source>The broadcast could not be stopped.</source>
        <translation>无法停止广播。</translation>
    </message>
    <message>
        <source>Stopping...</source>
        <translation>正在停止...</translation>
    </message>
    <message>
        <source>Live talk is not allowed for your account.</source>
        <translation>您的账号无实时喊话权限。</translation>
    </message>
    <message>
        <source>The site could not be loaded: %1</source>
        <translation>无法加载站点：%1</translation>
    </message>
    <message>
        <source>site loaded</source>
        <translation>站点已加载</translation>
    </message>
    <message>
        <source>%1 failed: %2</source>
        <translation>%1 失败：%2</translation>
    </message>
    <message>
        <source>The broadcast stopped with an error: %1</source>
        <translation>广播因错误而停止：%1</translation>
    </message>
    <message>
        <source>broadcast stopped</source>
        <translation>广播已停止</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CBroadcastPanel</name>
    <message>
        <source>Broadcast</source>
        <translation>广播</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CBroadcastPopDialog</name>
    <message>
        <source>Broadcast</source>
        <translation>广播</translation>
    </message>
    <message>
        <source>Play a file</source>
        <translation>播放文件</translation>
    </message>
    <message>
        <source>Speak a text</source>
        <translation>播报文本</translation>
    </message>
    <message>
        <source>Listen</source>
        <translation>监听</translation>
    </message>
    <message>
        <source>Talk to devices</source>
        <translation>设备喊话</translation>
    </message>
    <message>
        <source>Live talk</source>
        <translation>实时喊话</translation>
    </message>
    <message>
        <source>%1 to %2</source>
        <translation>%1：%2</translation>
    </message>
    <message>
        <source>, volume %1</source>
        <translation>，音量 %1</translation>
    </message>
    <message>
        <source>Not on this site: %1</source>
        <translation>不属于本站点：%1</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CDeviceTab</name>
    <message>
        <source>Connecting</source>
        <translation>连接中</translation>
    </message>
    <message>
        <source>Playing</source>
        <translation>播放中</translation>
    </message>
    <message>
        <source>Failed</source>
        <translation>失败</translation>
    </message>
    <message>
        <source>Stopped</source>
        <translation>已停止</translation>
    </message>
    <message>
        <source>Talk to devices</source>
        <translation>设备喊话</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>停止</translation>
    </message>
    <message>
        <source>Device</source>
        <translation>设备</translation>
    </message>
    <message>
        <source>Address</source>
        <translation>地址</translation>
    </message>
    <message>
        <source>State</source>
        <translation>状态</translation>
    </message>
    <message>
        <source>More device ids, such as 202,203</source>
        <translation>更多设备编号，如 202,203</translation>
    </message>
    <message>
        <source>Device %1</source>
        <translation>设备 %1</translation>
    </message>
    <message>
        <source>The device broadcast could not be started.</source>
        <translation>无法启动设备广播。</translation>
    </message>
    <message numerus="yes">
        <source>Starting the talk to %n devices...</source>
        <translation>
            <numerusform>正在向 %n 个设备发起喊话...</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>device talk to %n devices</source>
        <translation>
            <numerusform>向 %n 个设备喊话</numerusform>
        </translation>
    </message>
    <message>
        <source>Device talk stopped.</source>
        <translation>设备喊话已停止。</translation>
    </message>
    <message numerus="yes">
        <source>Talking to %n devices.</source>
        <translation>
            <numerusform>正在向 %n 个设备喊话。</numerusform>
        </translation>
    </message>
    <message>
        <source>Speak now: the devices are listening.</source>
        <translation>请讲话：设备正在接收。</translation>
    </message>
    <message>
        <source>The device talk failed: %1</source>
        <translation>设备喊话失败：%1</translation>
    </message>
    <message>
        <source>Live talk is not allowed for your account.</source>
        <translation>您的账号无实时喊话权限。</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CFileTab</name>
    <message>
        <source>Search</source>
        <translation>搜索</translation>
    </message>
    <message>
        <source>Show all</source>
        <translation>显示全部</translation>
    </message>
    <message>
        <source>Local file...</source>
        <translation>本地文件...</translation>
    </message>
    <message>
        <source>Download</source>
        <translation>下载</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>播放</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>停止</translation>
    </message>
    <message>
        <source>Search the media library</source>
        <translation>搜索媒体库</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>名称</translation>
    </message>
    <message>
        <source>Format</source>
        <translation>格式</translation>
    </message>
    <message>
        <source>Duration</source>
        <translation>时长</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>大小</translation>
    </message>
    <message>
        <source>Media library</source>
        <translation>媒体库</translation>
    </message>
    <message>
        <source>The media library cannot be searched now.</source>
        <translation>当前无法搜索媒体库。</translation>
    </message>
    <message>
        <source>Choose an audio file</source>
        <translation>选择音频文件</translation>
    </message>
    <message>
        <source>Audio files (*.wav *.mp3)</source>
        <translation>音频文件 (*.wav *.mp3)</translation>
    </message>
    <message>
        <source>Library: %1.%2%3</source>
        <translation>媒体库：%1.%2%3</translation>
    </message>
    <message>
        <source> (not downloaded)</source>
        <translation> （未下载）</translation>
    </message>
    <message>
        <source> (downloaded)</source>
        <translation> （已下载）</translation>
    </message>
    <message>
        <source>Local file: %1</source>
        <translation>本地文件：%1</translation>
    </message>
    <message>
        <source>The download could not be started.</source>
        <translation>无法开始下载。</translation>
    </message>
    <message>
        <source>Downloading %1 to the local audio cache...</source>
        <translation>正在将 %1 下载到本地音频缓存...</translation>
    </message>
    <message>
        <source>The download failed: %1</source>
        <translation>下载失败：%1</translation>
    </message>
    <message>
        <source>Downloaded to the local audio cache.</source>
        <translation>已下载到本地音频缓存。</translation>
    </message>
    <message>
        <source>The search failed: %1</source>
        <translation>搜索失败：%1</translation>
    </message>
    <message numerus="yes">
        <source>%n files found.</source>
        <translation>
            <numerusform>找到 %n 个文件。</numerusform>
        </translation>
    </message>
    <message>
        <source>Choose the speakers to play to first.</source>
        <translation>请先选择要播放的扬声器。</translation>
    </message>
    <message>
        <source>The file could not be played.</source>
        <translation>无法播放该文件。</translation>
    </message>
    <message numerus="yes">
        <source>file %1 to %n speakers</source>
        <translation>
            <numerusform>向 %n 个扬声器播放文件 %1</numerusform>
        </translation>
    </message>
    <message>
        <source>Preparing the file...</source>
        <translation>正在准备文件...</translation>
    </message>
    <message>
        <source>Playing...</source>
        <translation>播放中...</translation>
    </message>
    <message>
        <source>The file was played.</source>
        <translation>文件播放完毕。</translation>
    </message>
    <message>
        <source>The file did not play on %1 of the speakers.</source>
        <translation>有 %1 个扬声器未能播放该文件。</translation>
    </message>
    <message>
        <source>Broadcasting is not allowed for your account.</source>
        <translation>您的账号无广播权限。</translation>
    </message>
    <message>
        <source>%1 of %2 KB</source>
        <translation>%1 / %2 KB</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CListenTab</name>
    <message>
        <source>Listen</source>
        <translation>监听</translation>
    </message>
    <message>
        <source>Speaker to listen to</source>
        <translation>要监听的扬声器</translation>
    </message>
    <message>
        <source>Level of what is heard</source>
        <translation>监听到的音频电平</translation>
    </message>
    <message>
        <source>Speaker</source>
        <translation>扬声器</translation>
    </message>
    <message>
        <source>Heard</source>
        <translation>监听电平</translation>
    </message>
    <message>
        <source>The listen could not be started.</source>
        <translation>无法开始监听。</translation>
    </message>
    <message>
        <source>Connecting to %1...</source>
        <translation>正在连接 %1...</translation>
    </message>
    <message>
        <source>Cannot listen: %1</source>
        <translation>无法监听：%1</translation>
    </message>
    <message>
        <source>Cannot listen to %1: %2</source>
        <translation>无法监听 %1：%2</translation>
    </message>
    <message>
        <source>Listening to %1.</source>
        <translation>正在监听 %1。</translation>
    </message>
    <message>
        <source>listening to %1</source>
        <translation>监听 %1</translation>
    </message>
    <message>
        <source>Not listening.</source>
        <translation>未在监听。</translation>
    </message>
    <message>
        <source>The listen stopped with an error: %1</source>
        <translation>监听因错误而停止：%1</translation>
    </message>
    <message>
        <source>Stop listening</source>
        <translation>停止监听</translation>
    </message>
    <message>
        <source>Listening is not allowed for your account.</source>
        <translation>您的账号无监听权限。</translation>
    </message>
    <message>
        <source>Listening volume</source>
        <translation>监听音量</translation>
    </message>
    <message>
        <source>Volume</source>
        <translation>音量</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CPromptBar</name>
    <message>
        <source>Close the message</source>
        <translation>关闭消息</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CSpeakerPicker</name>
    <message>
        <source>Choose shown</source>
        <translation>全选显示项</translation>
    </message>
    <message>
        <source>Clear</source>
        <translation>清除</translation>
    </message>
    <message>
        <source>Search name or address</source>
        <translation>搜索名称或地址</translation>
    </message>
    <message>
        <source>State filter</source>
        <translation>状态筛选</translation>
    </message>
    <message>
        <source>All states</source>
        <translation>全部状态</translation>
    </message>
    <message>
        <source>Partition filter</source>
        <translation>分区筛选</translation>
    </message>
    <message>
        <source>Speakers by partition</source>
        <translation>按分区显示扬声器</translation>
    </message>
    <message>
        <source>All partitions</source>
        <translation>全部分区</translation>
    </message>
    <message>
        <source>%1 of %2 speakers chosen</source>
        <translation>已选择 %1/%2 个扬声器</translation>
    </message>
    <message>
        <source> (%1 shown)</source>
        <translation> （显示 %1 个）</translation>
    </message>
    <message>
        <source>All speakers idle</source>
        <translation>所有扬声器空闲</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CSpeakerTreeModel</name>
    <message>
        <source>Outside partitions</source>
        <translation>未分区</translation>
    </message>
    <message>
        <source>Prompt tone</source>
        <translation>提示音</translation>
    </message>
    <message numerus="yes">
        <source>%n playing</source>
        <translation>
            <numerusform>%n 个播放中</numerusform>
        </translation>
    </message>
    <message>
        <source>Speaker</source>
        <translation>扬声器</translation>
    </message>
    <message>
        <source>State</source>
        <translation>状态</translation>
    </message>
    <message>
        <source>Address</source>
        <translation>地址</translation>
    </message>
    <message>
        <source>Area</source>
        <translation>区域</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CTalkTab</name>
    <message>
        <source>Push to talk: hold the button or the space bar</source>
        <translation>按住说话：按住按钮或空格键</translation>
    </message>
    <message>
        <source>Microphone level</source>
        <translation>麦克风电平</translation>
    </message>
    <message>
        <source>Microphone</source>
        <translation>麦克风</translation>
    </message>
    <message>
        <source>Your account may not talk live.</source>
        <translation>您的账号无实时喊话权限。</translation>
    </message>
    <message>
        <source>Choose the speakers to talk to first.</source>
        <translation>请先选择要喊话的扬声器。</translation>
    </message>
    <message>
        <source>The talk could not be started.</source>
        <translation>无法开始喊话。</translation>
    </message>
    <message numerus="yes">
        <source>talk started to %n speakers</source>
        <translation>
            <numerusform>已开始向 %n 个扬声器喊话</numerusform>
        </translation>
    </message>
    <message>
        <source>Stop talking</source>
        <translation>停止喊话</translation>
    </message>
    <message>
        <source>Hold to talk</source>
        <translation>按住喊话</translation>
    </message>
    <message>
        <source>Talk</source>
        <translation>喊话</translation>
    </message>
    <message>
        <source>Live talk is not allowed for your account (no live broadcast right). Ask an administrator to grant it.</source>
        <translation>您的账号不允许实时喊话（无实时广播权限）。请联系管理员授权。</translation>
    </message>
    <message>
        <source>Another broadcast is running.</source>
        <translation>另一个广播正在进行中。</translation>
    </message>
    <message>
        <source>Choose speakers and press Talk.</source>
        <translation>请选择扬声器，然后按“喊话”。</translation>
    </message>
    <message>
        <source>Live talks are recorded and stored on the platform.</source>
        <translation>实时喊话会被录音并保存在平台上。</translation>
    </message>
    <message>
        <source>Live talks are not recorded.</source>
        <translation>实时喊话不会被录音。</translation>
    </message>
    <message>
        <source>Connecting to the speakers...</source>
        <translation>正在连接扬声器...</translation>
    </message>
    <message>
        <source>Prompt tone played.</source>
        <translation>提示音已播放。</translation>
    </message>
    <message>
        <source>Speak now.</source>
        <translation>请讲话。</translation>
    </message>
    <message>
        <source>Speak now: the speakers are listening.</source>
        <translation>请讲话：扬声器正在接收。</translation>
    </message>
    <message>
        <source>On air at %1 of %2 speakers.</source>
        <translation>%1/%2 个扬声器正在广播。</translation>
    </message>
    <message>
        <source>Recording this talk</source>
        <translation>正在录制本次喊话</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::CTextTab</name>
    <message>
        <source>Speak</source>
        <translation>播报</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>停止</translation>
    </message>
    <message>
        <source>Text the speakers say</source>
        <translation>扬声器播报的文本</translation>
    </message>
    <message>
        <source>Text to speak</source>
        <translation>要播报的文本</translation>
    </message>
    <message>
        <source>Language</source>
        <translation>语言</translation>
    </message>
    <message>
        <source>Speaker</source>
        <translation>扬声器</translation>
    </message>
    <message>
        <source>Result</source>
        <translation>结果</translation>
    </message>
    <message>
        <source>The text is too long (at most %1 characters).</source>
        <translation>文本过长（最多 %1 个字符）。</translation>
    </message>
    <message>
        <source>The text could not be sent.</source>
        <translation>无法发送文本。</translation>
    </message>
    <message>
        <source>Sent</source>
        <translation>已发送</translation>
    </message>
    <message numerus="yes">
        <source>text to %n speakers</source>
        <translation>
            <numerusform>向 %n 个扬声器播报文本</numerusform>
        </translation>
    </message>
    <message>
        <source>Sending the text to the platform...</source>
        <translation>正在将文本发送到平台...</translation>
    </message>
    <message>
        <source>Not played: %1</source>
        <translation>未播放：%1</translation>
    </message>
    <message>
        <source>No speaker can say the text.</source>
        <translation>没有扬声器能够播报该文本。</translation>
    </message>
    <message numerus="yes">
        <source>The platform speaks the text on %n speakers.</source>
        <translation>
            <numerusform>平台正在 %n 个扬声器上播报该文本。</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n speakers cannot say the text.</source>
        <translation>
            <numerusform>%n 个扬声器无法播报该文本。</numerusform>
        </translation>
    </message>
    <message>
        <source>Speaking</source>
        <translation>播报中</translation>
    </message>
    <message>
        <source>Failed: %1</source>
        <translation>失败：%1</translation>
    </message>
    <message>
        <source>Finished</source>
        <translation>已完成</translation>
    </message>
    <message>
        <source>The text was spoken.</source>
        <translation>文本播报完毕。</translation>
    </message>
    <message>
        <source>Stopped</source>
        <translation>已停止</translation>
    </message>
    <message>
        <source>Not started</source>
        <translation>未开始</translation>
    </message>
    <message>
        <source>Broadcasting is not allowed for your account.</source>
        <translation>您的账号无广播权限。</translation>
    </message>
</context>
<context>
    <name>BroadCastPlugin::SpeakerState</name>
    <message>
        <source>Idle</source>
        <translation>空闲</translation>
    </message>
    <message>
        <source>Connecting</source>
        <translation>连接中</translation>
    </message>
    <message>
        <source>Playing</source>
        <translation>播放中</translation>
    </message>
    <message>
        <source>Failed</source>
        <translation>失败</translation>
    </message>
    <message>
        <source>Offline</source>
        <translation>离线</translation>
    </message>
</context>
</TS>

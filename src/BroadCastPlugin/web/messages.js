// The module's messages to its web pages ("Method" and "Data") and what the page shows of them.

/** Speaker states shown, by the "PlayState" of an "IPSpeakerBroadcastState" message. */
// A stopped speaker is idle again.
export const PLAY_STATES = { 0: 'connecting', 1: 'playing', 2: 'failed', 3: 'idle' };

/** Parses one outgoing message; a text that is not a JSON object gives { Method: null, raw }. */
export function parseMessage(text) {
  try {
    const value = JSON.parse(text);
    if (value && typeof value === 'object' && !Array.isArray(value)) return value;
  } catch (error) {
    // not JSON: the task control application's own texts may be anything
  }
  return { Method: null, raw: text };
}

/** The speaker terminals of a "BroadcastTerminals" answer. */
export function parseTerminals(text) {
  const answer = parseMessage(text);
  const list = (answer.BroadcastTerminalList && answer.BroadcastTerminalList.BroadcastTerminal) || [];
  return list.map((t) => ({
    id: t.ID,
    name: t.Name,
    area: t.AreaName || '',
    online: t.WorkStatus !== 0,
    partitions: ((t.PartitionIDList && t.PartitionIDList.PartitionID) || []).filter((p) => p !== -1),
  }));
}

/** Groups terminals by partition id (-1: outside every partition), partitions in ascending order. */
export function groupByPartition(terminals) {
  const groups = new Map();
  for (const terminal of terminals) {
    const ids = terminal.partitions.length ? terminal.partitions : [-1];
    for (const id of ids) {
      if (!groups.has(id)) groups.set(id, []);
      groups.get(id).push(terminal);
    }
  }
  return [...groups.entries()].sort((a, b) => (a[0] === -1) - (b[0] === -1) || a[0] - b[0]);
}

/** A one-line summary of a message for the log. */
export function describe(message) {
  const data = message.Data || {};
  switch (message.Method) {
    case 'BroadcastStartFinish': return 'broadcast started';
    case 'BroadcastStopFinish': return 'broadcast stopped';
    case 'IPSpeakerBroadcastState':
      return `speaker ${data.ID}: ${PLAY_STATES[data.PlayState] || `state ${data.PlayState}`}` +
        `${data.PromptVoicePlaying ? ' (prompt tone)' : ''}${data.ErrorInfo ? ` - ${data.ErrorInfo}` : ''}`;
    case 'DownloadShoutFileFinished':
      return data.ErrorInfo ? `download of file ${data.FileID} failed: ${data.ErrorInfo}`
        : `file ${data.FileID} downloaded to ${data.FilePath}`;
    case 'BroadcastListeningResult':
      return data.Result === 1 ? `listening to ${data.ResourceID}`
        : `cannot listen to ${data.ResourceID}: ${data.ErrorInfo}`;
    default:
      return message.Method === null ? String(message.raw) : JSON.stringify(message);
  }
}

// The pages' reading of the module's messages, without a browser (node --test).
import { test } from 'node:test';
import { strict as assert } from 'node:assert';
import { channelAddress } from '../../src/BroadCastPlugin/web/channel.js';
import { describe, groupByPartition, parseMessage, parseTerminals } from '../../src/BroadCastPlugin/web/messages.js';

test('terminals are read from the module answer and grouped by partition, the unpartitioned last', () => {
  const answer = JSON.stringify({ BroadcastTerminalList: { BroadcastTerminal: [
    { ID: 1002, Name: 'Corridor', AreaName: 'Ground', WorkStatus: 1, PartitionIDList: { PartitionID: [3, 1] } },
    { ID: 1007, Name: 'Yard', AreaName: 'Yard', WorkStatus: 0, PartitionIDList: { PartitionID: [-1] } },
    { ID: 1001, Name: 'Hall', WorkStatus: 1, PartitionIDList: { PartitionID: [1] } },
  ] } });
  const terminals = parseTerminals(answer);
  assert.deepEqual(terminals.map((t) => [t.id, t.online, t.partitions]), [[1002, true, [3, 1]], [1007, false, []], [1001, true, [1]]]);
  const groups = groupByPartition(terminals);
  assert.deepEqual(groups.map(([id, list]) => [id, list.map((t) => t.id)]), [[1, [1002, 1001]], [3, [1002]], [-1, [1007]]]);
  // An answer without the list (or not JSON at all) gives no terminals rather than an exception.
  assert.deepEqual(parseTerminals('{}'), []);
  assert.deepEqual(parseTerminals('not json'), []);
});

test('messages are described for the log; texts that are not JSON objects are kept as they are', () => {
  assert.equal(describe(parseMessage('{"Method":"BroadcastListeningResult","Data":{"ResourceID":4242,"Result":0,"ErrorInfo":"unknown"}}')),
    'cannot listen to 4242: unknown');
  assert.equal(describe(parseMessage('{"Method":"IPSpeakerBroadcastState","Data":{"ID":1001,"PlayState":0,"PromptVoicePlaying":true}}')),
    'speaker 1001: connecting (prompt tone)');
  assert.equal(describe(parseMessage('{"Method":"IPSpeakerBroadcastState","Data":{"ID":-1,"PlayState":5}}')), 'speaker -1: state 5');
  const raw = parseMessage('[1,2]');
  assert.equal(raw.Method, null);
  assert.equal(describe(raw), '[1,2]');
  assert.equal(describe(parseMessage('plain text for the task app')), 'plain text for the task app');
});

test('the channel address comes from the page address: token from the path, port from ?ws=', () => {
  const address = channelAddress(new URL('http://127.0.0.1:4000/abc123/broadcast.html?ws=4001'));
  assert.deepEqual(address, { token: 'abc123', url: 'ws://127.0.0.1:4001/abc123' });
});

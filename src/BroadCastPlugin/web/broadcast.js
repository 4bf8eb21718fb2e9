// The broadcast page: speakers by partition with live states, live talk, a media file from the library,
// listening, and the log of every message the module sends to the page, with its target.

import { connect, invoke } from './channel.js';
import { PLAY_STATES, describe, groupByPartition, parseMessage, parseTerminals } from './messages.js';

const $ = (id) => document.getElementById(id);
const TARGETS = { 0: 'web', 1: 'task app' };

const page = {
  broadcast: null,
  site: null,
  terminals: [],
  chosen: new Set(),
  running: false,  // a broadcast of this page runs
  playAfterDownload: null,  // element ids waiting for the downloaded file
  listening: false,
};

function log(text, target, method) {
  const item = document.createElement('li');
  item.dataset.method = method || '';
  item.dataset.target = String(target);
  const time = document.createElement('span');
  time.textContent = new Date().toTimeString().slice(0, 8);
  const where = document.createElement('span');
  where.className = 'target';
  where.textContent = TARGETS[target] || `target ${target}`;
  const what = document.createElement('span');
  what.textContent = text;
  item.append(time, where, what);
  $('messages').append(item);
  item.scrollIntoView({ block: 'nearest' });
}

function setState(element, state, text) {
  element.dataset.state = state;
  element.textContent = text || state;
}

function speakerRows(id) {
  return document.querySelectorAll(`.speaker[data-id="${id}"]`);
}

function showSpeakerState(id, state, error) {
  for (const row of speakerRows(id)) {
    row.dataset.state = state;
    const badge = row.querySelector('.state');
    setState(badge, state);
    badge.title = error || '';
  }
}

function refreshControls() {
  const linked = page.broadcast !== null;
  const chosen = page.chosen.size > 0;
  $('talk').disabled = !linked || !chosen || page.running;
  $('stop').disabled = !linked || !page.running;
  $('play-file').disabled = !linked || !chosen || page.running || page.playAfterDownload !== null;
  $('listen').disabled = !linked || page.listening || $('listen-speaker').options.length === 0;
  $('stop-listen').disabled = !linked || !page.listening;
  $('clean-cache').disabled = !linked || page.running;
  $('chosen').textContent = `${page.chosen.size} chosen`;
}

function renderSpeakers() {
  const root = $('partitions');
  root.replaceChildren();
  const filter = $('filter').value.trim().toLowerCase();
  for (const [partition, terminals] of groupByPartition(page.terminals)) {
    const shown = terminals.filter((t) => !filter || t.name.toLowerCase().includes(filter));
    if (!shown.length) continue;
    const group = document.createElement('details');
    group.className = 'partition';
    group.open = true;
    group.dataset.partition = String(partition);
    const title = document.createElement('summary');
    title.textContent = partition === -1 ? 'Outside partitions' : `Partition ${partition}`;
    group.append(title);
    for (const terminal of shown) {
      const row = document.createElement('label');
      row.className = 'speaker';
      row.dataset.id = String(terminal.id);
      const box = document.createElement('input');
      box.type = 'checkbox';
      box.checked = page.chosen.has(terminal.id);
      box.addEventListener('change', () => {
        if (box.checked) page.chosen.add(terminal.id); else page.chosen.delete(terminal.id);
        for (const other of speakerRows(terminal.id)) other.querySelector('input').checked = box.checked;
        refreshControls();
      });
      const name = document.createElement('span');
      name.append(document.createTextNode(terminal.name));
      const area = document.createElement('div');
      area.className = 'area';
      area.textContent = terminal.area;
      name.append(area);
      const badge = document.createElement('span');
      badge.className = 'state';
      row.dataset.state = terminal.online ? 'idle' : 'offline';
      setState(badge, row.dataset.state);
      row.append(box, name, badge);
      group.append(row);
    }
    root.append(group);
  }
}

function fillListenChoices() {
  const select = $('listen-speaker');
  select.replaceChildren(...page.terminals.map((t) => new Option(t.name, String(t.id))));
}

function onMessage(text, target) {
  const message = parseMessage(text);
  log(describe(message), target, message.Method || '');
  if (target !== 0) return;  // the task control application's copy
  const data = message.Data || {};
  switch (message.Method) {
    case 'BroadcastStartFinish':
      page.running = true;
      setState($('broadcast-state'), 'broadcasting', 'Broadcasting');
      break;
    case 'IPSpeakerBroadcastState':
      if (data.ID !== undefined && data.ID >= 0 && PLAY_STATES[data.PlayState]) {
        showSpeakerState(data.ID, PLAY_STATES[data.PlayState], data.ErrorInfo);
      }
      break;
    case 'BroadcastStopFinish':
      page.running = false;
      if ($('file-state').textContent.startsWith('Playing')) $('file-state').textContent = 'Stopped.';
      setState($('broadcast-state'), 'idle', 'Idle');
      for (const terminal of page.terminals) {
        const rows = speakerRows(terminal.id);
        if (rows.length && rows[0].dataset.state !== 'failed' && rows[0].dataset.state !== 'offline') {
          showSpeakerState(terminal.id, 'idle');
        }
      }
      break;
    case 'DownloadShoutFileFinished':
      if (page.playAfterDownload !== null) {
        const ids = page.playAfterDownload;
        page.playAfterDownload = null;
        if (data.ErrorInfo || !data.FilePath) {
          $('file-state').textContent = `Download failed: ${data.ErrorInfo || 'no file'}`;
        } else {
          $('file-state').textContent = `Playing ${data.FilePath}`;
          startBroadcast(ids, 1, data.FilePath);
        }
      }
      break;
    case 'BroadcastListeningResult':
      $('listen-result').dataset.result = String(data.Result);
      $('listen-result').textContent = data.Result === 1 ? `Listening (result 1)`
        : `Cannot listen (result ${data.Result}): ${data.ErrorInfo}`;
      page.listening = data.Result === 1;
      break;
    default:
      break;
  }
  refreshControls();
}

async function startBroadcast(ids, mode, path) {
  const request = { Data: { ElementIDs: ids.join(','), Mode: mode } };
  if (mode === 1) request.Data.MediaFilePath = path;
  const accepted = await invoke(page.broadcast, 'StartIPSpeakerBroadcast', JSON.stringify(request));
  if (!accepted) log('the module refused the broadcast request', 0, 'refused');
  else page.running = true;
  refreshControls();
}

function wireControls() {
  $('filter').addEventListener('input', renderSpeakers);
  $('talk').addEventListener('click', () => startBroadcast([...page.chosen], 0));
  $('stop').addEventListener('click', () => invoke(page.broadcast, 'StopIPSpeakerBroadcast'));
  $('play-file').addEventListener('click', async () => {
    const id = Number($('file-id').value);
    page.playAfterDownload = [...page.chosen];
    $('file-state').textContent = `Downloading file ${id}\u2026`;
    refreshControls();
    if (!await invoke(page.broadcast, 'DownloadMediaFile', JSON.stringify({ Data: { FileID: id } }))) {
      page.playAfterDownload = null;
      $('file-state').textContent = 'The module refused the download request.';
      refreshControls();
    }
  });
  $('listen').addEventListener('click', async () => {
    const id = Number($('listen-speaker').value);
    $('listen-result').dataset.result = '';
    $('listen-result').textContent = 'Connecting\u2026';
    page.listening = true;
    refreshControls();
    const request = { Data: { ResourceID: id, ResourceType: 1027, SiteID: -1 } };
    if (!await invoke(page.broadcast, 'StartBroadcastListen', JSON.stringify(request))) {
      page.listening = false;
      $('listen-result').textContent = 'The module refused the listen request.';
      refreshControls();
    }
  });
  $('stop-listen').addEventListener('click', async () => {
    await invoke(page.broadcast, 'StopBroadcastListen');
    page.listening = false;
    $('listen-result').dataset.result = '';
    $('listen-result').textContent = 'Not listening.';
    refreshControls();
  });
  $('clean-cache').addEventListener('click', async () => {
    await invoke(page.broadcast, 'CleanCache');
    log('cache cleaned', 0, 'CleanCache');
  });
  $('clear-log').addEventListener('click', () => $('messages').replaceChildren());
}

async function main() {
  wireControls();
  refreshControls();
  try {
    const objects = await connect(window.location, (event) => {
      page.broadcast = null;
      setState($('link'), 'down', `Disconnected (${event.code})`);
      refreshControls();
    });
    page.broadcast = objects.broadcast;
    page.site = objects.site;
    page.broadcast.executeJsFunction.connect(onMessage);
    setState($('link'), 'up', 'Connected');
    page.terminals = parseTerminals(await invoke(page.site, 'Call', 'BroadcastTerminals', '{}'));
    renderSpeakers();
    fillListenChoices();
  } catch (error) {
    setState($('link'), 'down', error.message);
  }
  refreshControls();
  document.body.dataset.ready = 'true';
}

main();

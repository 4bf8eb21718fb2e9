// The recording page: the live talks recorded and registered at the platform, with their speakers, start
// time, duration and size, played in the page straight from the object store. Opened on the auxiliary
// screen ("?aux=1") it tells the module so, and stops when the client closes that screen.

import { connect, invoke } from './channel.js';
import { parseMessage, parseTerminals } from './messages.js';

const $ = (id) => document.getElementById(id);
const state = { site: null, records: null, list: [] };

function formatBytes(bytes) {
  if (!(bytes >= 0)) return '';
  if (bytes < 1024) return `${bytes} B`;
  if (bytes < 1024 * 1024) return `${(bytes / 1024).toFixed(1)} KB`;
  return `${(bytes / 1024 / 1024).toFixed(1)} MB`;
}

function formatSeconds(seconds) {
  if (!Number.isFinite(seconds)) return '';
  const whole = Math.round(seconds);
  return `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, '0')}`;
}

function play(record, row) {
  for (const other of document.querySelectorAll('#records tr')) other.setAttribute('aria-selected', 'false');
  row.setAttribute('aria-selected', 'true');
  const player = $('player');
  player.src = record.PlayUrl;
  player.dataset.record = String(record.RecordID);
  $('playing').textContent = `Playing the talk of ${record.StartTime}`;
  player.play().catch((error) => { $('playing').textContent = `Cannot play: ${error.message}`; });
}

function render() {
  const body = $('records');
  body.replaceChildren();
  for (const record of state.list) {
    const row = document.createElement('tr');
    row.dataset.id = String(record.RecordID);
    row.tabIndex = 0;
    const cells = [record.StartTime, record.Speakers.map((s) => s.Name).join(', '), '', formatBytes(record.Bytes),
      record.UserName || ''];
    for (const text of cells) {
      const cell = document.createElement('td');
      cell.textContent = text;
      row.append(cell);
    }
    // The duration is what the browser reads from the file's header.
    if (!record.PlayUrl) {
      row.children[2].textContent = record.PlayError || 'cannot play';
      body.append(row);
      continue;
    }
    const probe = new Audio();
    probe.preload = 'metadata';
    probe.onloadedmetadata = () => { row.children[2].textContent = formatSeconds(probe.duration); row.dataset.duration = String(probe.duration); };
    probe.src = record.PlayUrl;
    row.addEventListener('click', () => play(record, row));
    row.addEventListener('keydown', (event) => { if (event.key === 'Enter' || event.key === ' ') { event.preventDefault(); play(record, row); } });
    body.append(row);
  }
  $('empty').hidden = state.list.length > 0;
  $('count').textContent = `${state.list.length} recordings`;
}

function onRecordsListed(text) {
  const answer = parseMessage(text);
  // The platform also registers played media files (mode 1); this page lists the recorded talks (mode 0).
  state.list = (answer.Records || []).filter((record) => record.BroadcastMode === 0);
  render();
  if (answer.ErrorInfo) $('count').textContent = `Cannot list the recordings: ${answer.ErrorInfo}`;
  document.body.dataset.loaded = String(Date.now());
}

function refresh() {
  const element = $('speaker-filter').value;
  const criteria = element ? { ElementID: Number(element) } : {};
  // The answer comes as a signal: the listing asks the platform, off the module's UI thread.
  state.records.ListRecords(JSON.stringify({ SearchCriteria: criteria }));
}

async function main() {
  try {
    const objects = await connect(window.location, (event) => {
      $('link').dataset.state = 'down';
      $('link').textContent = `Disconnected (${event.code})`;
    });
    state.site = objects.site;
    state.records = objects.records;
    state.records.recordsListed.connect(onRecordsListed);
    $('link').dataset.state = 'up';
    $('link').textContent = 'Connected';
    const terminals = parseTerminals(await invoke(state.site, 'Call', 'BroadcastTerminals', '{}'));
    for (const terminal of terminals) $('speaker-filter').append(new Option(terminal.name, String(terminal.id)));
    if (new URLSearchParams(window.location.search).get('aux') === '1') {
      await invoke(state.records, 'SetRecordPageOnAuxScreen', true);
      state.records.auxScreenClosing.connect(() => {
        $('player').pause();
        $('aux-note').hidden = false;
        $('aux-note').textContent = 'The auxiliary screen is closing.';
        document.body.dataset.auxClosed = 'true';
      });
    }
    $('refresh').disabled = false;
    $('refresh').addEventListener('click', refresh);
    $('speaker-filter').addEventListener('change', refresh);
    refresh();
  } catch (error) {
    $('link').dataset.state = 'down';
    $('link').textContent = error.message;
  }
  document.body.dataset.ready = 'true';
}

main();

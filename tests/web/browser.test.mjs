// The browser steps of the web tests: the module's pages in Chromium, driven as an operator would.
// Started by run_web_tests.py with the page addresses of a running `bcast-host webui`.
//   node browser.test.mjs --page URL --record-page URL --sentence WAV --out DIR --chromium PATH --talk 1001,1003

import { spawn } from 'node:child_process';
import { strict as assert } from 'node:assert';
import path from 'node:path';
import { chromium } from 'playwright-core';

const args = Object.fromEntries(process.argv.slice(2).reduce((pairs, value, i, all) =>
  (i % 2 === 0 ? [...pairs, [value.replace(/^--/, ''), all[i + 1]]] : pairs), []));
const talk = args.talk.split(',').map(Number);
const failures = [];

async function step(name, body) {
  const started = Date.now();
  try {
    await body();
    console.log(`ok    ${name} (${Date.now() - started} ms)`);
  } catch (error) {
    failures.push(name);
    console.log(`FAIL  ${name}: ${error.stack || error}`);
  }
}

function play(wav) {
  return new Promise((resolve, reject) => {
    const player = spawn('paplay', ['-d', 'vmic', wav], { stdio: 'inherit' });
    player.on('error', reject);
    player.on('exit', (code) => (code === 0 ? resolve() : reject(new Error(`paplay exited with ${code}`))));
  });
}

/** Messages the page logged, as { method, target }. */
function messages(page) {
  return page.$$eval('#messages li', (items) => items.map((li) => ({ method: li.dataset.method, target: li.dataset.target })));
}

async function waitForMessage(page, method, timeout = 20000) {
  await page.waitForSelector(`#messages li[data-method="${method}"]`, { timeout, state: 'attached' });
}

async function openPage(browser, url, viewport) {
  const page = await browser.newPage({ viewport });
  page.on('pageerror', (error) => failures.push(`page error: ${error.message}`));
  await page.goto(url);
  await page.waitForSelector('body[data-ready="true"]', { timeout: 20000 });
  assert.equal(await page.getAttribute('#link', 'data-state'), 'up', await page.textContent('#link'));
  return page;
}

const browser = await chromium.launch({ executablePath: args.chromium, args: ['--no-sandbox', '--autoplay-policy=no-user-gesture-required'] });
let wide;
let narrow;
try {
  await step('a page address without the access token is refused', async () => {
    const good = new URL(args.page);
    const token = good.pathname.split('/')[1];
    const wrong = new URL(good);
    wrong.pathname = wrong.pathname.replace(token, 'not-the-token');
    assert.equal((await fetch(wrong)).status, 403);
    const bare = new URL(good);
    bare.pathname = '/broadcast.html';
    assert.equal((await fetch(bare)).status, 403);
    assert.equal((await fetch(good)).status, 200);
    // A WebSocket without the token is closed before any object is offered.
    const probe = await browser.newPage();
    await probe.goto(good.toString());
    const closed = await probe.evaluate((port) => new Promise((resolve) => {
      const socket = new WebSocket(`ws://127.0.0.1:${port}/not-the-token`);
      socket.onmessage = () => resolve('message');
      socket.onclose = (event) => resolve(`closed ${event.code}`);
    }), good.searchParams.get('ws'));
    assert.match(closed, /^closed/);
    await probe.close();
  });

  await step('the page lists the site speakers by partition, wide and narrow', async () => {
    wide = await openPage(browser, args.page, { width: 1280, height: 860 });
    narrow = await openPage(browser, args.page, { width: 420, height: 900 });
    const ids = await wide.$$eval('.speaker', (rows) => [...new Set(rows.map((r) => Number(r.dataset.id)))]);
    assert.equal(ids.length, 7, `speakers ${ids}`);
    assert.equal(await wide.getAttribute('.speaker[data-id="1007"]', 'data-state'), 'offline');
    // Narrow: one column, the actions above the speakers, nothing wider than the window.
    const width = await narrow.evaluate(() => document.documentElement.scrollWidth);
    assert.ok(width <= 420, `the narrow page scrolls sideways (${width} px)`);
    const [actionsTop, speakersTop] = await narrow.evaluate(() => ['.actions', '.speakers'].map((s) => document.querySelector(s).getBoundingClientRect().top));
    assert.ok(actionsTop < speakersTop, 'the actions come first on a narrow window');
  });

  await step('a live talk from the page: started, per-speaker states, stopped; the other page sees only pushes', async () => {
    for (const id of talk) await wide.check(`.speaker[data-id="${id}"] input`);
    assert.equal(await wide.textContent('#chosen'), `${talk.length} chosen`);
    await wide.click('#talk');
    await waitForMessage(wide, 'BroadcastStartFinish');
    for (const id of talk) {
      await wide.waitForSelector(`.speaker[data-id="${id}"][data-state="playing"]`, { timeout: 20000 });
    }
    await play(args.sentence);
    await wide.waitForTimeout(1500);
    await wide.click('#stop');
    await waitForMessage(wide, 'BroadcastStopFinish');
    for (const id of talk) {
      await wide.waitForSelector(`.speaker[data-id="${id}"][data-state="idle"]`, { timeout: 10000 });
    }
    // The other page hears the speakers' pushes (they belong to no request) but not the first page's results.
    const other = (await messages(narrow)).map((m) => m.method);
    assert.ok(other.includes('IPSpeakerBroadcastState'), 'the second page saw the speakers');
    assert.ok(!other.includes('BroadcastStartFinish') && !other.includes('BroadcastStopFinish'),
      `the second page saw the first page's results: ${other}`);
    // It learns of the end from the speakers' pushes alone.
    for (const id of talk) {
      await narrow.waitForSelector(`.speaker[data-id="${id}"][data-state="idle"]`, { timeout: 10000 });
    }
    const targets = new Set((await messages(wide)).map((m) => m.target));
    assert.ok(targets.has('0'), 'messages for the web client are shown with their target');
  });

  await step('a listen shows result 1, a listen to an unknown speaker result 0 with its error', async () => {
    await wide.selectOption('#listen-speaker', '1001');
    await wide.click('#listen');
    await wide.waitForSelector('#listen-result[data-result="1"]', { timeout: 20000 });
    await wide.click('#stop-listen');
    await wide.waitForSelector('#listen-result[data-result=""]');
    await wide.evaluate(() => document.getElementById('listen-speaker').add(new Option('Nobody', '4242')));
    await wide.selectOption('#listen-speaker', '4242');
    await wide.click('#listen');
    await wide.waitForSelector('#listen-result[data-result="0"]', { timeout: 20000 });
    const text = await wide.textContent('#listen-result');
    assert.match(text, /result 0\): \S/, text);
    assert.ok(!(await messages(narrow)).some((m) => m.method === 'BroadcastListeningResult'),
      'the second page saw the first page\'s listen results');
  });

  await step('a media file of the library is downloaded and played from the page', async () => {
    // Other speakers than the talk's, whose recordings are compared with the sentence afterwards.
    for (const id of talk) await wide.uncheck(`.speaker[data-id="${id}"] input`);
    await wide.check('.speaker[data-id="1006"] input');
    await wide.fill('#file-id', '5');
    const before = (await messages(wide)).length;
    await wide.click('#play-file');
    await waitForMessage(wide, 'DownloadShoutFileFinished', 30000);
    await wide.waitForFunction((n) => [...document.querySelectorAll('#messages li')].slice(n)
      .some((li) => li.dataset.method === 'BroadcastStartFinish'), before, { timeout: 20000 });
    assert.match(await wide.textContent('#file-state'), /^Playing \//);
    await wide.click('#stop');
    await wide.waitForFunction((n) => [...document.querySelectorAll('#messages li')].slice(n)
      .some((li) => li.dataset.method === 'BroadcastStopFinish'), before, { timeout: 20000 });
  });

  await step('the recording page lists the talk recorded above and plays it from the object store', async () => {
    const records = await browser.newPage({ viewport: { width: 1280, height: 860 } });
    records.on('pageerror', (error) => failures.push(`record page error: ${error.message}`));
    await records.goto(args['record-page']);
    await records.waitForSelector('body[data-ready="true"]', { timeout: 20000 });
    // The talk's recording is uploaded after its stop: ask again until it is registered.
    const deadline = Date.now() + 30000;
    while ((await records.$$('#records tr')).length === 0) {
      assert.ok(Date.now() < deadline, 'no recording was listed within 30 s');
      await records.click('#refresh');
      await records.waitForTimeout(1000);
    }
    const row = records.locator('#records tr').first();
    const speakers = await row.locator('td').nth(1).textContent();
    assert.match(speakers, /Hall A/);
    assert.match(speakers, /Lobby/);
    // The duration comes from the file itself, through its presigned address.
    await records.waitForFunction(() => document.querySelector('#records tr').dataset.duration > 0, null, { timeout: 15000 });
    await row.click();
    await records.waitForFunction(() => document.getElementById('player').currentTime > 0.5, null, { timeout: 15000 });
    // Only the recorded talk: the media file played above is registered too, but is no recording.
    assert.equal(await records.locator('#records tr').count(), 1);
    await records.screenshot({ path: path.join(args.out, 'record-1280.png'), fullPage: true });
    // Filtering by a speaker that took no broadcast lists nothing.
    await records.selectOption('#speaker-filter', '1002');
    await records.waitForSelector('#empty:not([hidden])', { timeout: 15000 });
    await records.close();
  });

  await step('screenshots of the pages', async () => {
    await wide.screenshot({ path: path.join(args.out, 'broadcast-1280.png'), fullPage: true });
    await narrow.screenshot({ path: path.join(args.out, 'broadcast-narrow.png'), fullPage: true });
  });
} finally {
  await browser.close();
}

if (failures.length) {
  console.log(`${failures.length} failed: ${failures.join('; ')}`);
  process.exit(1);
}
console.log('all browser steps passed');

// The daemon's web page in a real browser (Debian's chromium, driven by playwright-core): the switch
// simulator plays the office day to the real calljournald, which serves the page on a loopback
// port; the page is checked against what `calljournal` reports, while the day goes on live.
//
// Set by ctest (tests/CMakeLists.txt): CALLJOURNAL_BIN_DIR (calljournald, calljournal and
// cstaswitchsim), CALLJOURNAL_SOURCE_DIR (the examples), CALLJOURNAL_SCREENSHOT_DIR (where the
// screenshots go), CHROMIUM (default /usr/bin/chromium). A browser that does not start fails the
// test: nothing here is skipped.
'use strict';

const { describe, it, before, after } = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { chromium } = require('playwright-core');
const { Child, cli, eventually } = require('./processes');

const required = (name) => {
  if (!process.env[name]) throw new Error(`${name} is not set (ctest sets it; see tests/CMakeLists.txt)`);
  return process.env[name];
};
const BIN = required('CALLJOURNAL_BIN_DIR');
const SOURCE = required('CALLJOURNAL_SOURCE_DIR');
const SCREENSHOTS = required('CALLJOURNAL_SCREENSHOT_DIR');
const CHROMIUM = process.env.CHROMIUM || '/usr/bin/chromium';
const EXAMPLES = path.join(SOURCE, 'examples');
const OFFICE_DAY = path.join(EXAMPLES, 'traces', 'office-day.xml');
const EVENING = path.join(__dirname, 'evening-calls.xml');
// The office day in a few seconds: each pause of the trace is at most 150 s, played 150 times faster.
const FAST = ['--pace', '150', '--max-gap', '150'];
const LIST_NAMES = ['missed', 'received', 'dialled', 'forwarded', 'callbacks'];

const work = fs.mkdtempSync(path.join(os.tmpdir(), 'calljournal-web-'));
const socket = path.join(work, 'calljournal.sock');
let simulator, daemon, switchPort, webPort, browser, page;

const journal = (...args) => cli(path.join(BIN, 'calljournal'), ['--socket', socket, ...args]);
const lists = async () => JSON.parse(await journal('list', '--json'));
const ids = (entries) => entries.map((e) => e.entryId);

function startSimulator(trace, pace, port) {
  simulator = new Child('cstaswitchsim', path.join(BIN, 'cstaswitchsim'),
    ['--port', String(port), '--trace', trace, ...pace], work);
  return eventually(() => /listening on 127\.0\.0\.1:(\d+)/.exec(simulator.output), 'the simulator listens')
    .then((m) => Number(m[1]));
}

// Starts the daemon on the test's database and socket; resolves with the port of its web listener.
async function startDaemon(port) {
  daemon = new Child('calljournald', path.join(BIN, 'calljournald'), [
    '--config', path.join(EXAMPLES, 'calljournald.conf'), '--set', `switch=127.0.0.1:${switchPort}`,
    '--set', `database=${path.join(work, 'journal.db')}`, '--set', `client-socket=${socket}`,
    '--set', `phonebook=${path.join(EXAMPLES, 'phonebook.csv')}`, '--set', `client-web=127.0.0.1:${port}`,
  ], work);
  await journal('wait', '--timeout', '20');
  const address = await eventually(() => /clients on the web at http:\/\/127\.0\.0\.1:(\d+)\//.exec(daemon.output),
    'the daemon names its web address');
  return Number(address[1]);
}

async function launchBrowser() {
  const profile = fs.mkdtempSync(path.join(work, 'chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: CHROMIUM,
    headless: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
    viewport: { width: 960, height: 640 },
  });
  return context;
}

// ---- What the page shows

const rowIds = () => page.$$eval('#entries > li', (rows) => rows.map((row) => row.dataset.entryId));
const rowText = (entryId, part) =>
  page.$eval(`#entries > li[data-entry-id="${entryId}"] .${part}`, (e) => e.textContent);
const badge = () => page.$eval('#missed-badge', (e) => (e.hidden ? '' : e.textContent));

async function openTab(name) {
  await page.click(`#tab-${name}`);
  await page.waitForFunction((n) => document.querySelector(`#tab-${n}`).getAttribute('aria-selected') === 'true', name);
}

// Waits until the page's rows are `expected` (ids in order); returns the rows it last saw.
async function rowsBecome(expected) {
  try {
    await page.waitForFunction((want) => {
      const got = [...document.querySelectorAll('#entries > li')].map((row) => row.dataset.entryId);
      return JSON.stringify(got) === JSON.stringify(want);
    }, expected, { timeout: 10000 });
  } catch (_) {
    // The assertion that follows names the difference.
  }
  return rowIds();
}

async function badgeBecomes(expected) {
  await page.waitForFunction((want) => {
    const b = document.getElementById('missed-badge');
    return (b.hidden ? '' : b.textContent) === want;
  }, expected, { timeout: 10000 }).catch(() => {});
  return badge();
}

async function linkBecomes(state) {
  await page.waitForFunction((want) => document.getElementById('link').dataset.state === want, state,
    { timeout: 20000 }).catch(() => {});
  return page.$eval('#link', (e) => e.dataset.state);
}

// ---- The run

describe('the web page of calljournald', { timeout: 120000 }, () => {
  let day;  // the lists after the office day, as calljournal reports them

  before(async () => {
    switchPort = await startSimulator(OFFICE_DAY, FAST, 0);
    // The web listener takes any free port and the daemon logs its address.
    webPort = await startDaemon(0);
    browser = await launchBrowser();
    page = await browser.newPage();
    await page.goto(`http://127.0.0.1:${webPort}/`);
    await eventually(() => /\d+ events sent/.test(simulator.output), 'the simulator plays the office day', 60000);
    // The day's last call is the received call from reception.
    day = await eventually(async () => {
      const now = await lists();
      return now.received.length === 3 && now.forwarded.length === 1 ? now : null;
    }, 'the office day is filed');
  });

  after(async () => {
    if (browser) await browser.close().catch(() => {});
    if (daemon) await daemon.stop();
    if (simulator) await simulator.stop();
    if (process.env.CALLJOURNAL_KEEP_WORK) console.log(`kept ${work}`);
    else fs.rmSync(work, { recursive: true, force: true });
  });

  it('shows the daemon connected and the switch link up', async () => {
    assert.equal(await linkBecomes('up'), 'up');
    assert.equal(await page.$eval('#connection', (e) => e.dataset.state), 'connected');
  });

  it('shows the unviewed missed entries as the badge and the callbacks as their count', async () => {
    const expected = String(day.unviewedMissed);
    assert.equal(await badgeBecomes(expected), expected);
    assert.equal(await page.textContent('#callbacks-count'), String(day.callbacks.length));
  });

  it('takes screenshots of the office day at a desktop and a phone width', async () => {
    // The page is still on the missed list it opened with: nothing is marked viewed.
    const weber = day.missed.find((e) => e.infos.length === 2);
    await page.click(`#entries > li[data-entry-id="${weber.entryId}"] .entry-head`);
    fs.mkdirSync(SCREENSHOTS, { recursive: true });
    // Down to the panel's end, not the empty rest of the window.
    const shot = async (file) => {
      const height = await page.$eval('main', (main) => Math.ceil(main.getBoundingClientRect().bottom) + 16);
      const width = page.viewportSize().width;
      await page.screenshot({ path: file, clip: { x: 0, y: 0, width, height } });
    };
    const desktop = path.join(SCREENSHOTS, 'web-page.png');
    await shot(desktop);
    await page.setViewportSize({ width: 390, height: 844 });
    const phone = path.join(SCREENSHOTS, 'web-page-phone.png');
    await shot(phone);
    // At a phone's width nothing reaches beyond the screen.
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 390);
    await page.setViewportSize({ width: 960, height: 640 });
    await page.click(`#entries > li[data-entry-id="${weber.entryId}"] .entry-head`);
    assert.ok(fs.statSync(desktop).size > 10000, 'the desktop screenshot is written');
    assert.ok(fs.statSync(phone).size > 10000, 'the phone screenshot is written');
  });

  it('shows the rows of each list in the order calljournal lists them', async () => {
    // The page opens on the missed list without marking it viewed; the others are opened.
    assert.deepEqual(await rowsBecome(ids(day.missed)), ids(day.missed));
    assert.equal(await page.$$eval('#entries .new', (marks) => marks.length), day.missed.filter((e) => !e.viewed).length);
    for (const name of LIST_NAMES.slice(1)) {
      await openTab(name);
      assert.deepEqual(await rowsBecome(ids(day[name])), ids(day[name]), `the ${name} list`);
    }
  });

  it('shows an entry as a phone does: name, number, count, duration, forwarding target', async () => {
    await openTab('received');
    const reception = day.received[0];
    assert.equal(await rowText(reception.entryId, 'who'), [reception.firstname, reception.surname].join(' ').trim());
    assert.equal(await rowText(reception.entryId, 'duration'), reception.infos[0].duration);
    await openTab('forwarded');
    const forwarded = day.forwarded[0];
    const to = forwarded.infos[0];
    assert.equal(await rowText(forwarded.entryId, 'target'),
      `→ ${[to.connectedFirstname, to.connectedSurname, to.connectedNumber].filter((t) => t).join(' ')}`);
    await openTab('dialled');
    const twice = day.dialled.find((e) => e.infos.length === 2);
    assert.equal(await rowText(twice.entryId, 'calls'), '(2)');
    // The phonebook's number types: 1 work, 2 mobile, 3 home, 4 other.
    const type = ['', 'work', 'mobile', 'home', 'other'][twice.infos[0].numberType];
    assert.equal(await rowText(twice.entryId, 'number'), `${twice.infos[0].number} · ${type}`);
  });

  it('opens a list and a row with the keyboard to show every occurrence', async () => {
    await openTab('received');
    await page.focus('#tab-received');
    await page.keyboard.press('ArrowRight');
    await page.keyboard.press('Enter');
    assert.equal(await page.getAttribute('#tab-dialled', 'aria-selected'), 'true');
    const twice = day.dialled.find((e) => e.infos.length === 2);
    const head = `#entries > li[data-entry-id="${twice.entryId}"] .entry-head`;
    await page.focus(head);
    await page.keyboard.press('Enter');
    assert.equal(await page.getAttribute(head, 'aria-expanded'), 'true');
    const times = await page.$$eval(`#entries > li[data-entry-id="${twice.entryId}"] .occurrence time`,
      (cells) => cells.map((c) => c.getAttribute('datetime')));
    assert.deepEqual(times, twice.infos.map((info) => info.timeDate));
    await page.keyboard.press('Enter');
    assert.equal(await page.getAttribute(head, 'aria-expanded'), 'false');
  });

  it('lists every call in the history, newest first, and filters it by a name', async () => {
    const history = JSON.parse(await journal('history', '--json'));
    // The address names the view: a link to #history opens it in the page as it is.
    await page.evaluate(() => { location.hash = 'history'; });
    await page.waitForFunction(() => document.getElementById('tab-history').getAttribute('aria-selected') === 'true',
      null, { timeout: 5000 }).catch(() => {});
    assert.equal(await page.textContent('#view-title'), 'History');
    const calls = () => page.$$eval('#entries > li', (rows) =>
      rows.map((row) => `${row.querySelector('time').getAttribute('datetime')} ${row.dataset.entryId}`));
    assert.deepEqual(await calls(), history.map((call) => `${call.time} ${call.entryId}`));
    const found = ids(JSON.parse(await journal('list', '--find', 'weber', '--json')).missed);
    await page.fill('#search', 'weber');
    assert.deepEqual(await calls(),
      history.filter((call) => found.includes(call.entryId)).map((call) => `${call.time} ${call.entryId}`));
    await page.fill('#search', '');
  });

  it('marks the missed calls viewed when the missed list is opened', async () => {
    await openTab('received');
    await openTab('missed');
    assert.equal(await badgeBecomes(''), '');
    const missed = await eventually(async () => {
      const now = await lists();
      return now.unviewedMissed === 0 ? now : null;
    }, 'the missed calls are viewed', 10000).catch(() => lists());
    assert.equal(missed.unviewedMissed, 0);
    await page.waitForFunction(() => document.querySelectorAll('#entries .new').length === 0, null,
      { timeout: 10000 }).catch(() => {});
    assert.equal(await page.$$eval('#entries .new', (marks) => marks.length), 0);
  });

  it('shows the switch going down', async () => {
    await simulator.stop();
    assert.equal(await linkBecomes('down'), 'down');
  });

  it('moves a merged entry to the top as the call comes, without a reload', async () => {
    await page.evaluate(() => { window.stillTheSamePage = true; });
    switchPort = await startSimulator(EVENING, ['--pace', '20', '--max-gap', '2'], switchPort);
    assert.equal(await linkBecomes('up'), 'up');
    // The missed list is open: Jonas Weber's third call brings his entry to the top.
    const weber = day.missed.find((e) => e.infos.length === 2).entryId;
    assert.equal((await rowsBecome([weber, ...ids(day.missed).filter((id) => id !== weber)]))[0], weber);
    assert.equal(await rowText(weber, 'calls'), '(3)');
    const evening = await eventually(async () => {
      const now = await lists();
      return now.received[0].infos[0].number === '3205' ? now : null;
    }, 'the evening is filed');
    assert.equal(await badgeBecomes(String(evening.unviewedMissed)), String(evening.unviewedMissed));
    assert.equal(await page.evaluate(() => window.stillTheSamePage), true);
  });

  it('clears the badge with its button', async () => {
    assert.notEqual(await badge(), '');
    await page.click('#mark-viewed');
    assert.equal(await badgeBecomes(''), '');
    assert.equal((await lists()).unviewedMissed, 0);
  });

  it('shows the other merged entry at the top of its list', async () => {
    await openTab('received');
    const ines = day.received.find((e) => e.infos[0].number === '3205').entryId;
    assert.equal((await rowsBecome([ines, ...ids(day.received).filter((id) => id !== ines)]))[0], ines);
    assert.deepEqual(await rowIds(), ids((await lists()).received));
  });

  it('drops an entry another client deletes', async () => {
    await openTab('dialled');
    const before = await lists();
    const gone = before.dialled[1].entryId;
    await journal('delete', gone);
    const expected = ids(before.dialled).filter((id) => id !== gone);
    assert.deepEqual(await rowsBecome(expected), expected);
  });

  it('deletes an entry after the confirmation, and keeps it when the user cancels', async () => {
    await openTab('received');
    const target = (await lists()).received.at(-1).entryId;
    const remove = `#entries > li[data-entry-id="${target}"] .delete`;
    await page.click(remove);
    await page.click('#confirm-cancel');
    assert.equal(ids((await lists()).received).includes(target), true);
    await page.click(remove);
    assert.equal(await page.$eval('#confirm', (d) => d.open), true);
    await page.click('#confirm-ok');
    await eventually(async () => !ids((await lists()).received).includes(target), 'the entry is deleted', 10000)
      .catch(() => {});
    assert.equal(ids((await lists()).received).includes(target), false);
    assert.equal((await rowsBecome(ids((await lists()).received))).includes(target), false);
  });

  it('empties a list after the confirmation, redrawing it as the whole list changes', async () => {
    await openTab('received');
    assert.ok((await rowIds()).length >= 2, 'several entries to delete at once');
    await page.click('#delete-list');
    await page.click('#confirm-ok');
    await eventually(async () => (await lists()).received.length === 0, 'the received list is empty', 10000)
      .catch(() => {});
    assert.equal((await lists()).received.length, 0);
    assert.deepEqual(await rowsBecome([]), []);
  });

  it('shows the refusal of the daemon when the entry to delete is gone meanwhile', async () => {
    await openTab('dialled');
    const entry = (await lists()).dialled[0];
    const target = entry.entryId;
    await page.click(`#entries > li[data-entry-id="${target}"] .delete`);
    await journal('delete', target);  // another client is quicker
    await rowsBecome(ids((await lists()).dialled));
    await page.click('#confirm-ok');
    await page.waitForSelector('#errors .error', { timeout: 10000 }).catch(() => {});
    assert.equal(await page.textContent('#errors .error-text'),
      `The journal did not delete the dialled entry of ${[entry.firstname, entry.surname].join(' ').trim()}: it is gone already`);
  });

  it('shows the daemon gone', async () => {
    await daemon.stop();
    await page.waitForFunction(() => document.getElementById('connection').dataset.state === 'disconnected', null,
      { timeout: 10000 }).catch(() => {});
    assert.equal(await page.$eval('#connection', (e) => e.dataset.state), 'disconnected');
  });

  it('connects again when the daemon is back, and reads the lists again', async () => {
    await simulator.stop();  // no more calls: the lists stay as they are
    await startDaemon(webPort);
    const dialled = ids((await lists()).dialled);
    await page.waitForFunction(() => document.getElementById('connection').dataset.state === 'connected', null,
      { timeout: 15000 }).catch(() => {});
    assert.equal(await page.$eval('#connection', (e) => e.dataset.state), 'connected');
    assert.deepEqual(await rowsBecome(dialled), dialled);
  });
});

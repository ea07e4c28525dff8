// The page: which driver is shown, what is known of it, and what becomes of a frame.
import {ChipMap} from '/map.js';
import {RegionTable} from '/table.js';
import {Timeline} from '/timeline.js';
import {RegionView} from '/region.js';
import {openStream} from '/stream.js';
import {soon} from '/schedule.js';
import {count, duration, make, moment} from '/format.js';

const $ = id => document.getElementById(id);
const drivers = new Map();
let settings = {};
let driver = null;        // the name of the one that is shown
let regions = new Map();  // its rows
let loadedFrame = 0;      // the frame that its regions are of
let waiting = [];         // frames that came while the regions were asked for
let events = [];          // newest first
const passStarts = new Map();
const eventsShown = 200;
const freshShown = 20;  // of those that come at once
let freshEvents = [];

const dialog = new RegionView($('region'), () => hashIs(driver));
const open = name => { hashIs(driver, name); dialog.open(driver, name); };
const map = new ChipMap($('map'), $('mapText'), open);
const table = new RegionTable($('table'), $('regionCount'), open);
const timeline = new Timeline($('timeline'), $('timeText'), $('span'));

async function ask(path) {
  const response = await fetch(path);
  const json = await response.json();
  if (!response.ok) throw new Error(json.error);
  return json;
}

// ---- which driver -------------------------------------------------------------------------------

function hashIs(name, region) {
  const hash = '#' + [name, region].filter(Boolean).map(encodeURIComponent).join('/');
  if (location.hash !== hash) history.replaceState(null, '', hash);
}
const hashParts = () => location.hash.slice(1).split('/').map(decodeURIComponent);

let driversDrawn = '';
function drawDrivers() {
  const text = JSON.stringify([driver, ...[...drivers.values()].map(each => [each.name, each.liveness])]);
  if (text === driversDrawn) return;
  driversDrawn = text;
  const buttons = [...drivers.values()].map(each => make('button', {
    type: 'button', 'data-driver': each.name, 'aria-current': each.name === driver ? 'true' : 'false',
    onclick: () => select(each.name)}, each.name + ' ', make('span', {class: each.liveness}, each.liveness)));
  const focused = document.activeElement && document.activeElement.dataset.driver;
  $('drivers').replaceChildren(...buttons);
  if (focused) buttons.find(button => button.dataset.driver === focused)?.focus();
  $('none').hidden = drivers.size > 0;
}

async function select(name) {
  driver = name;
  regions = new Map();
  events = [];
  freshEvents = [];
  waiting = [];
  loadedFrame = Infinity;
  hashIs(name);
  drawDrivers();
  drawHeader();
  timeline.driverIs(name);
  const kind = $('kind').value;
  const query = `driver=${encodeURIComponent(name)}`;
  const [rows, list] = await Promise.all([
    ask('/api/regions?' + query), ask(`/api/events?${query}&kind=${kind}&max=${eventsShown}`)]);
  if (name !== driver) return;
  for (const row of rows.rows) regionIs(row);
  loadedFrame = rows.frame;
  regionsChanged();
  events = list.events;
  drawEvents();
  drawAlarms();
  for (const frame of waiting.splice(0)) take(frame);
}

// ---- regions ------------------------------------------------------------------------------------

// [row, state, values...] as the server's columns say.
function regionIs(values) {
  let region = regions.get(values[0]);
  const isNew = !region;
  if (isNew) regions.set(values[0], region = {row: values[0]});
  settings.regionColumns.forEach((name, i) => { region[name] = values[i + 1]; });
  region.words = `${region.name} ${region.chip} ${region.address}`.toLowerCase();
  if (region.state === 0) regions.delete(values[0]);
  return isNew || region.state === 0 ? null : region;
}
function regionsChanged() {
  const all = [...regions.values()];
  map.regionsAre(all);
  table.regionsAre(all);
}

// ---- what a driver says of itself ---------------------------------------------------------------

const rowsOf = name => (drivers.get(driver)?.tables?.[name] || []).filter(row => !row.gone);

function drawHeader() {
  const known = drivers.get(driver);
  if (!known) return;
  drawBanner(known);
  drawPasses(known);
  drawAlarms();
  drawChips();
}

function drawBanner(known) {
  const banner = $('banner');
  banner.hidden = known.liveness === 'live';
  banner.className = known.liveness;
  if (banner.hidden) return;
  const what = {dead: 'is dead: its process is no more', stalled: 'does not tell of itself: it hangs, or its loop is blocked',
    ended: 'has ended in order'}[known.liveness];
  const assertion = events.find(event => event.kind === 'assertion');
  const found = rowsOf('shadow').reduce((sum, row) => sum + (row.findings || 0), 0);
  const alarms = rowsOf('alarm').filter(row => row.state !== 'cleared').length;
  banner.replaceChildren(
    make('strong', {class: known.liveness}, `${known.name} (process ${known.pid}) ${what}. Last heard of ${moment(known.since)}.`),
    make('p', {}, `What it left: ${count(found)} findings, ${alarms} open alarms, and the values and events below.`),
    known.assertion || assertion ? make('p', {class: 'dead'}, `An assertion ended it: ${assertion ? assertion.text : 'see its events'}`) : '');
}

function drawPasses(known) {
  const governors = rowsOf('governor');
  const nodes = rowsOf('shadow').map((row, i) => {
    const name = row.name || `shadow ${row.row}`;
    const state = row.patrolState || row.state || '';
    const total = row.passEntries || 0, done = Math.min(row.passEntriesDone || 0, total);
    const governor = governors.find(each => each.shadow === name) || governors[i];
    const left = governor?.timeLeft ?? row.timeLeft ?? timeLeft(known.name + '/' + row.row, done, total);
    const isMoving = known.liveness === 'live' && done < total && state !== 'suspended' && state !== 'paused' && state !== 'stopped';
    const text = !total ? 'no pass yet' : `${count(done)} of ${count(total)} entries (${(100 * done / total).toFixed(0)} %)`;
    return make('div', {class: 'pass'},
      make('div', {class: 'row'}, make('strong', {}, name), make('span', {class: state}, state + (row.patrolReason ? `: ${row.patrolReason}` : ''))),
      make('progress', {max: String(total || 1), value: String(done), 'aria-label': `Pass of ${name}`}),
      make('div', {class: 'row hint'}, make('span', {}, text),
        make('span', {}, isMoving ? `${duration(left)} left` : ''),
        make('span', {}, `last pass ended: ${moment(row.lastPassTime)}`)),
      make('div', {class: 'row'}, make('span', {}, `findings: ${count(row.findings)}`), make('span', {}, `repairs: ${count(row.repairs)}`),
        make('span', {}, `passes: ${count(row.audits)}`)));
  });
  $('passRows').replaceChildren(...nodes);
  if (known.notFit) $('passRows').append(make('p', {class: 'stalled'}, `${known.notFit} objects found no room in the live view.`));
  if (known.suppressed) $('passRows').append(make('p', {class: 'hint'}, `${count(known.suppressed)} events were too many for the log.`));
}

// Seconds, from how fast this pass went so far; null: not known.
function timeLeft(key, done, total) {
  const now = Date.now();
  const start = passStarts.get(key);
  if (!start || done < start.done || start.total !== total) {
    passStarts.set(key, {done, total, time: now});
    return null;
  }
  if (done === start.done) return null;
  return (total - done) * (now - start.time) / (done - start.done) / 1000;
}

function acknowledgedBy(alarm) {
  const said = events.find(event =>
    (event.kind === 'alarm' && event.detail === 2 && event.uid !== undefined && (event.text === alarm.rule || event.text === alarm.name)) ||
    (event.kind === 'command' && event.text.includes('doAcknowledge') && event.text.includes(alarm.name)));
  if (alarm.state !== 'acknowledged') return '';
  return said ? `user ${said.uid}, process ${said.pid}` : 'not known';
}

let alarmsDrawn = '';
function drawAlarms() {
  const known = drivers.get(driver);
  const alarms = rowsOf('alarm');
  const order = {raised: 0, acknowledged: 1, cleared: 2};
  alarms.sort((a, b) => order[a.state] - order[b.state] || (b.raisedTime || 0) - (a.raisedTime || 0));
  // What has not changed stays: a button must not go away under the pointer.
  const text = JSON.stringify([driver, settings.acknowledges, known?.canOperate, alarms, alarms.map(acknowledgedBy)]);
  if (text === alarmsDrawn) return;
  alarmsDrawn = text;
  const focused = document.activeElement?.dataset?.alarm;
  const rows = alarms.map(alarm => make('tr', {'data-alarm': alarm.name},
    make('td', {}, alarm.name), make('td', {class: alarm.state}, alarm.state), make('td', {}, count(alarm.findings)),
    make('td', {}, moment(alarm.raisedTime)),
    make('td', {}, acknowledgedBy(alarm), alarm.state === 'raised' && settings.acknowledges && known.canOperate
      ? make('button', {type: 'button', 'data-alarm': alarm.name, onclick: event => acknowledge(alarm, event.target)}, 'Acknowledge') : '')));
  $('alarmRows').replaceChildren(...rows);
  if (focused) $('alarmRows').querySelector(`button[data-alarm="${CSS.escape(focused)}"]`)?.focus();
  const raised = alarms.filter(alarm => alarm.state === 'raised').length;
  $('alarmCount').textContent = alarms.length ? `${raised} raised` : 'none';
  $('alarmCount').className = 'badge' + (raised ? ' raised' : '');
}

async function acknowledge(alarm, button) {
  button.disabled = true;
  const response = await fetch(`/api/acknowledge?driver=${encodeURIComponent(driver)}&alarm=${encodeURIComponent(alarm.name)}`,
                               {method: 'POST', headers: {'X-Umbra': '1'}});
  if (!response.ok) {
    const answer = await response.json().catch(() => ({error: 'the server does not answer'}));
    button.replaceWith(make('span', {class: 'dead'}, answer.error));
  }
}

function drawChips() {
  const nodes = rowsOf('chip').map(chip => make('div', {class: 'row'}, make('strong', {}, chip.name || `chip ${chip.row}`),
    make('span', {class: chip.isAbsent ? 'absent' : chip.isRestoring ? 'stalled' : 'live'},
      chip.isAbsent ? `absent: ${chip.reason}` : chip.isRestoring ? 'is restored' : 'present'),
    make('span', {class: 'hint'}, `absences ${count(chip.absences)}, resets ${count(chip.resets)}`)));
  $('chipRows').replaceChildren(...(nodes.length ? nodes : [make('p', {class: 'hint'}, 'No chip is described.')]));
}

// ---- events -------------------------------------------------------------------------------------

function eventNode(event, isFresh) {
  const detail = event.kind === 'finding'
    ? `entry ${event.entry}: expected ${event.expected}, actual ${event.actual}: ${event.text} (${event.nature})` : event.text;
  return make('li', {class: isFresh ? 'fresh' : '', 'data-number': event.number},
    make('time', {datetime: new Date(event.time).toISOString()}, moment(event.time)), make('span', {class: 'kind'}, event.kind),
    event.region ? make('button', {type: 'button', class: 'link', onclick: () => open(event.region)}, event.region) : event.chip || '',
    make('span', {}, detail), event.uid !== undefined ? make('span', {class: 'hint'}, `by user ${event.uid}, process ${event.pid}`) : '');
}
function drawEvents() {
  $('events').replaceChildren(...events.slice(0, eventsShown).map(event => eventNode(event, false)));
}
function eventsCame(list) {
  const kind = $('kind').value;
  const known = events.length ? events[0].number : 0;
  const fresh = list.filter(event => event.number > known && (!kind || event.kind === kind));
  for (const event of list) if (event.kind === 'finding') timeline.add(event.time);
  if (!fresh.length) return;
  events.unshift(...fresh.slice().reverse());
  events.length = Math.min(events.length, 2000);
  freshEvents = freshEvents.concat(fresh).slice(-eventsShown);
  soon('events', drawFreshEvents);
  if (dialog.name && fresh.some(event => event.region === dialog.name)) dialog.changed();
  if (fresh.some(event => event.kind === 'alarm' || event.kind === 'command')) drawAlarms();
}
// Of many at once only the newest are shown, and the others when no more come.
let eventsWait = 0;
function drawFreshEvents() {
  const came = freshEvents.splice(0);
  const fresh = came.slice(-freshShown);
  if (came.length > fresh.length) {
    clearTimeout(eventsWait);
    eventsWait = setTimeout(() => soon('events', () => { freshEvents = []; drawEvents(); }), 1500);
  }
  const list = $('events');
  list.prepend(...fresh.reverse().map(event => eventNode(event, fresh.length <= 4)));
  while (list.childElementCount > eventsShown) list.lastChild.remove();
}
async function older() {
  const last = events.length ? events[events.length - 1].number : 0;
  if (!last) return;
  const list = await ask(`/api/events?driver=${encodeURIComponent(driver)}&kind=${$('kind').value}&before=${last}&max=200`);
  events.push(...list.events);
  $('events').append(...list.events.map(event => eventNode(event, false)));
}

// ---- what comes from the server -----------------------------------------------------------------

async function hello() {
  const all = await ask('/api/drivers');
  settings = all;
  drivers.clear();
  for (const each of all.drivers) drivers.set(each.name, each);
  const [wanted, region] = hashParts();
  const chosen = [driver, wanted, drivers.keys().next().value].find(name => drivers.has(name));
  drawDrivers();
  if (!chosen) return;
  await select(chosen);
  if (region && regions.size) open(region);
}

function take(frame) {
  for (const each of frame.drivers || []) drivers.set(each.name, each);
  for (const name of frame.gone || []) drivers.delete(name);
  if (frame.drivers || frame.gone) {
    soon('drivers', drawDrivers);
    if (!drivers.has(driver)) {
      const first = drivers.keys().next().value;
      if (first) select(first);
      return;
    }
    if ((frame.drivers || []).some(each => each.name === driver)) soon('header', drawHeader);
  }
  if (loadedFrame === Infinity) {
    waiting.push(frame);
    return;
  }
  const rows = frame.regions?.[driver] || [];
  if (frame.frame > loadedFrame && rows.length) {
    let isArranged = true;
    for (const row of rows) {
      const region = regionIs(row);
      if (region) map.changed(region); else isArranged = false;
    }
    if (isArranged) table.changed(); else regionsChanged();
  }
  if (frame.events?.[driver]) eventsCame(frame.events[driver]);
}

let helloUnderWay = Promise.resolve();
openStream({
  hello: () => { helloUnderWay = helloUnderWay.then(hello).catch(error => stateIs(error.message)); },
  frame: frame => { helloUnderWay.then(() => take(frame)); },
  state: text => stateIs(text),
});
function stateIs(text) {
  $('link').textContent = text;
  $('link').className = 'badge ' + (text === 'connected' ? 'live' : text === 'connecting' ? '' : 'dead');
}

// ---- what a person does -------------------------------------------------------------------------

const kinds = ['finding', 'adopted', 'pass', 'alarm', 'chip', 'patrol', 'mode', 'policy', 'command', 'assertion', 'suppressed', 'start', 'end'];
$('kind').append(...kinds.map(kind => make('option', {value: kind}, kind)));
$('kind').addEventListener('change', () => select(driver));
$('more').addEventListener('click', older);
$('search').addEventListener('input', event => table.searchIs(event.target.value));
addEventListener('hashchange', () => {
  const [name, region] = hashParts();
  if (drivers.has(name) && name !== driver) select(name);
  if (region && region !== dialog.name) dialog.open(driver, region);
});
// A page that comes back from the browser's cache has lost its stream.
addEventListener('pageshow', event => { if (event.persisted) location.reload(); });

const themes = ['auto', 'dark', 'light'];
function themeIs(theme) {
  if (theme === 'auto') delete document.documentElement.dataset.theme;
  else document.documentElement.dataset.theme = theme;
  $('theme').textContent = theme[0].toUpperCase() + theme.slice(1);
  localStorage.setItem('theme', theme);
  map.coloursAre();
  timeline.coloursAre();
}
$('theme').addEventListener('click', () => {
  themeIs(themes[(themes.indexOf(localStorage.getItem('theme') || 'auto') + 1) % themes.length]);
});
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => { map.coloursAre(); timeline.coloursAre(); });
themeIs(localStorage.getItem('theme') || 'auto');

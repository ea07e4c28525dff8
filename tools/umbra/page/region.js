// One region in a dialog: all that is known of it, and its entries: what is expected beside what the
// chip holds.
import {make, moment, value} from '/format.js';

const entriesShown = 64;

export class RegionView {
  constructor(dialog, closed) {
    this.dialog = dialog;
    this.title = dialog.querySelector('h2');
    this.body = dialog.querySelector('#regionBody');
    dialog.addEventListener('close', () => { this.name = null; closed(); });
  }

  async open(driver, name) {
    this.driver = driver;
    this.name = name;
    this.first = 0;
    this.title.textContent = name;
    this.body.replaceChildren(make('p', {class: 'hint'}, 'loading'));
    if (!this.dialog.open) this.dialog.showModal();
    await this.load();
  }

  // Something was found in it: what is shown is asked for again.
  changed() {
    if (!this.name || this.waits) return;
    this.waits = setTimeout(() => { this.waits = null; this.load(); }, 300);
  }

  async ask(what, more = '') {
    const url = `/api/${what}?driver=${encodeURIComponent(this.driver)}&region=${encodeURIComponent(this.name)}${more}`;
    const response = await fetch(url);
    return response.json();
  }

  async load() {
    if (!this.name) return;
    const name = this.name;
    let row, bytes, events;
    try {
      [row, bytes, events] = await Promise.all([
        this.ask('region'), this.ask('bytes', `&first=${this.first}&count=${entriesShown}`),
        this.ask('events', '&max=50')]);
    } catch (error) {
      row = {error: 'the server does not answer'};
    }
    if (name !== this.name) return;
    if (row.error) {
      this.body.replaceChildren(make('p', {}, row.error));
      return;
    }
    const facts = make('dl', {class: 'facts'});
    for (const each of row.values) {
      facts.append(make('div', {title: each.help}, make('dt', {}, each.name), make('dd', {}, value(each))));
    }
    this.body.replaceChildren(
      row.torn ? make('p', {class: 'dead'}, 'These values were being written when the driver died: some may be newer than others.') : '',
      facts, make('h3', {}, 'Entries'), this.hex(row, bytes), make('h3', {}, 'What happened'), this.events(events.events));
  }

  hex(row, bytes) {
    const entries = (row.values.find(each => each.name === 'entries') || {}).value;
    const lines = new Map();
    for (const each of bytes.entries || []) lines.set(each.entry, {...each});
    for (const [entry, found] of Object.entries(bytes.findings || {})) {
      const line = lines.get(Number(entry)) || {entry: Number(entry), expected: found.expected, actual: found.actual, old: true};
      line.found = found;
      lines.set(Number(entry), line);
    }
    const body = make('tbody', {});
    for (const line of [...lines.values()].sort((a, b) => a.entry - b.entry)) {
      body.append(make('tr', {},
        make('td', {title: line.fields || ''}, line.name ? `${line.entry} ${line.name}` : String(line.entry)),
        this.bytes(line.expected, line.actual, line.known === 'unknown'),
        this.bytes(line.actual, line.expected, false),
        make('td', {}, line.known || ''), make('td', {}, line.policy || ''),
        make('td', {}, line.found ? `${line.found.text} ${line.found.nature} ${moment(line.found.time)}` : '')));
    }
    const step = by => { this.first = Math.max(0, this.first + by); this.load(); };
    const from = make('input', {type: 'number', min: '0', value: String(this.first), 'aria-label': 'First entry'});
    from.addEventListener('change', () => { this.first = Math.max(0, Number(from.value) || 0); this.load(); });
    return make('div', {},
      bytes.why ? make('p', {class: 'hint'}, `Entries are those of the event log: ${bytes.why}.`) : '',
      make('p', {class: 'row'},
        make('button', {type: 'button', onclick: () => step(-entriesShown)}, 'Before'),
        make('label', {}, 'from entry ', from, entries ? ` of ${entries}` : ''),
        make('button', {type: 'button', onclick: () => step(entriesShown)}, 'After')),
      make('div', {class: 'hex', tabindex: '0'}, make('table', {},
        make('thead', {}, make('tr', {}, ...['Entry', 'Expected', 'Actual', 'Known', 'Policy', 'Found'].map(text => make('th', {}, text)))),
        body)),
      lines.size ? '' : make('p', {class: 'hint'}, 'Nothing is known of these entries.'));
  }

  // The bytes of `text`; those that `other` has otherwise stand out.
  bytes(text, other, isUnknown) {
    const cell = make('td', {class: isUnknown ? 'unknown' : ''});
    if (text === undefined || text === null || text === '') {
      cell.append('–');
      return cell;
    }
    const others = (other || '').split(' ');
    text.split(' ').forEach((byte, i) => {
      const differs = other && others[i] !== byte;
      cell.append(differs ? make('span', {class: 'differs'}, byte) : byte, ' ');
    });
    return cell;
  }

  events(events) {
    const list = make('ol', {class: 'hex'});
    for (const event of events) list.append(make('li', {}, `${moment(event.time)} ${line(event)}`));
    return events.length ? list : make('p', {class: 'hint'}, 'No event of it is known.');
  }
}

// An event in one line.
export function line(event) {
  let text = event.kind;
  if (event.region) text += ` ${event.region}`;
  if (event.kind === 'finding') text += ` entry ${event.entry}: expected ${event.expected}, actual ${event.actual}: ${event.text} (${event.nature})`;
  else if (event.text) text += `: ${event.text}`;
  return text;
}

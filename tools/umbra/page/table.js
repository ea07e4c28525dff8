// The table of regions: only the lines in view exist, whatever the number of regions.
import {count, make, moment} from '/format.js';
import {soon} from '/schedule.js';

const lineHeight = 26;
const columns = [
  {key: 'name', title: 'Region'},
  {key: 'chip', title: 'Chip'},
  {key: 'address', title: 'Address'},
  {key: 'entries', title: 'Entries', number: true},
  {key: 'mode', title: 'Mode'},
  {key: 'findings', title: 'Findings', number: true},
  {key: 'repairs', title: 'Repairs', number: true},
  {key: 'findingsIn1h', title: '1 h', number: true},
  {key: 'lastFindingTime', title: 'Last', number: true},
];

export class RegionTable {
  constructor(place, badge, open) {
    this.badge = badge;
    this.open = open;
    this.regions = [];
    this.shown = [];
    this.search = '';
    this.sort = 'lastFindingTime';
    this.falls = true;
    this.at = -1;
    this.head = make('div', {class: 'head', role: 'row'});
    this.body = make('div', {role: 'rowgroup'});
    this.body.style.position = 'relative';
    this.grid = make('div', {class: 'grid', tabindex: '0', role: 'grid', 'aria-label': 'Regions; arrow keys move, Enter opens'},
                     this.head, this.body);
    place.replaceChildren(this.grid);
    for (const column of columns) {
      const button = make('button', {type: 'button', onclick: () => this.sortBy(column)}, column.title);
      column.head = make('span', {role: 'columnheader'}, button);
      this.head.append(column.head);
    }
    this.grid.addEventListener('scroll', () => this.drawSoon());
    this.grid.addEventListener('keydown', event => this.key(event));
    new ResizeObserver(() => this.drawSoon()).observe(this.grid);
  }

  regionsAre(regions) {
    this.regions = regions;
    this.at = -1;
    this.arrange();
  }
  searchIs(text) {
    this.search = text.trim().toLowerCase();
    this.grid.scrollTop = 0;
    this.arrange();
  }
  sortBy(column) {
    this.falls = this.sort === column.key ? !this.falls : Boolean(column.number);
    this.sort = column.key;
    this.arrange();
  }

  // Values have changed: what is in view is drawn again at once, the order once a second.
  changed() {
    this.drawSoon();
    if (this.waits) return;
    this.waits = setTimeout(() => { this.waits = null; soon('order', () => this.arrange()); }, 1000);
  }

  arrange() {
    const at = this.shown[this.at];
    const search = this.search;
    const shown = search ? this.regions.filter(region => region.words.includes(search)) : this.regions.slice();
    const sign = this.falls ? -1 : 1;
    const key = this.sort;
    if (columns.find(column => column.key === key).number) {
      shown.sort((a, b) => sign * ((a[key] || 0) - (b[key] || 0)) || a.row - b.row);
    } else {
      shown.sort((a, b) => sign * (a[key] < b[key] ? -1 : a[key] > b[key] ? 1 : 0) || a.row - b.row);
    }
    this.shown = shown;
    this.at = at ? shown.indexOf(at) : -1;
    this.badge.textContent = search ? `${count(shown.length)} of ${count(this.regions.length)}` : count(shown.length);
    this.body.style.height = shown.length * lineHeight + 'px';
    this.grid.setAttribute('aria-rowcount', shown.length);
    for (const column of columns) {
      column.head.setAttribute('aria-sort', column.key !== key ? 'none' : this.falls ? 'descending' : 'ascending');
      column.head.firstChild.textContent = column.title + (column.key !== key ? '' : this.falls ? ' ▾' : ' ▴');
    }
    this.drawSoon();
  }

  drawSoon() {
    soon('table', () => this.draw());
  }

  draw() {
    const first = Math.max(0, Math.floor(this.grid.scrollTop / lineHeight) - 4);
    const last = Math.min(this.shown.length, first + Math.ceil(this.grid.clientHeight / lineHeight) + 8);
    const now = Date.now();
    while (this.body.childElementCount > last - first) this.body.lastChild.remove();
    while (this.body.childElementCount < last - first) this.body.append(this.line());
    for (let i = first; i < last; ++i) {
      const region = this.shown[i];
      const line = this.body.children[i - first];
      line.style.top = i * lineHeight + 'px';
      line.region = region.name;
      line.classList.toggle('at', i === this.at);
      line.setAttribute('aria-rowindex', i + 1);
      columns.forEach((column, c) => {
        const value = region[column.key];
        const text = column.key === 'lastFindingTime' ? moment(value) : column.number ? count(value) : value || '';
        const cell = line.children[c];
        if (cell.textContent !== text) cell.textContent = text;
      });
      const age = region.lastFindingTime === null ? Infinity : now - region.lastFindingTime;
      line.children[8].className = age <= 60000 ? 'minuteText' : age <= 3600000 ? 'hourText' : '';
    }
  }
  line() {
    const line = make('div', {class: 'line', role: 'row', onclick: () => this.open(line.region)});
    for (const column of columns) line.append(make('span', {role: 'gridcell', 'data-key': column.key}));
    return line;
  }

  key(event) {
    const page = Math.max(1, Math.floor(this.grid.clientHeight / lineHeight) - 2);
    const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity};
    if (event.target !== this.grid) return;
    if (event.key === 'Enter' && this.shown[this.at]) {
      this.open(this.shown[this.at].name);
    } else if (event.key in steps) {
      this.at = Math.min(this.shown.length - 1, Math.max(0, this.at + steps[event.key]));
      const top = this.at * lineHeight;
      const room = this.grid.clientHeight - 2 * lineHeight;
      if (top < this.grid.scrollTop) this.grid.scrollTop = top;
      if (top > this.grid.scrollTop + room) this.grid.scrollTop = top - room;
      this.drawSoon();
    } else {
      return;
    }
    event.preventDefault();
  }
}

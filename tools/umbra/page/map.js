// The chip map: a canvas with a tile for each region, grouped by chip. Only tiles that changed are
// painted again; all of them every five seconds, because colours fade with time.
import {cells} from '/treemap.js';
import {moment} from '/format.js';
import {soon} from '/schedule.js';

const smallest = 25;    // square pixels of a tile of its own
const sideSeen = 3;     // a finding is painted at least so large

export class ChipMap {
  constructor(canvas, text, open) {
    this.canvas = canvas;
    this.text = text;
    this.open = open;
    this.regions = [];
    this.tiles = [];
    this.tileOf = new Map();  // row of a region: its tile
    this.dirty = new Set();
    this.selected = null;
    new ResizeObserver(() => this.layOut()).observe(canvas);
    setInterval(() => this.paintAll(), 5000);
    canvas.addEventListener('mousemove', event => this.select(this.tileAt(event), false));
    canvas.addEventListener('click', event => { this.select(this.tileAt(event), true); this.openSelected(); });
    canvas.addEventListener('keydown', event => this.key(event));
    canvas.addEventListener('focus', () => { if (!this.selected) this.select(this.tiles[0], true); });
    this.coloursAre();
  }

  coloursAre() {
    const style = getComputedStyle(document.documentElement);
    const colour = name => style.getPropertyValue('--' + name).trim();
    this.heats = [colour('quiet'), colour('old'), colour('hour'), colour('minute')];
    this.back = colour('card');
    this.mark = colour('select');
    this.ink = colour('text');
    this.paintAll();
  }

  // All regions: objects with row, name, chip, entries, entrySize, findings, lastFindingTime.
  regionsAre(regions) {
    this.regions = regions;
    this.selected = null;
    this.layOut();
  }

  // A region of those has other values.
  changed(region) {
    const tile = this.tileOf.get(region.row);
    if (tile) { this.dirty.add(tile); this.paintSoon(); }
  }

  layOut() {
    const ratio = Math.min(devicePixelRatio || 1, 2);
    const width = this.canvas.clientWidth, height = this.canvas.clientHeight;
    if (!width || !height) return;
    this.canvas.width = width * ratio;
    this.canvas.height = height * ratio;
    this.context = this.canvas.getContext('2d', {alpha: false});
    this.context.scale(ratio, ratio);
    const size = region => (region.entries || 1) * (region.entrySize || 1);
    const chips = new Map();
    for (const region of this.regions) {
      if (!chips.has(region.chip)) chips.set(region.chip, {name: region.chip, size: 0, regions: []});
      const chip = chips.get(region.chip);
      chip.size += size(region);
      chip.regions.push(region);
    }
    this.tiles = [];
    this.labels = [];
    for (const box of cells([...chips.values()], chip => chip.size, 0, 0, width, height, 0)) {
      const chip = box.items[0];
      const head = box.h > 60 && chips.size > 1 ? 14 : 0;
      this.labels.push({x: box.x, y: box.y, w: box.w, h: head, name: chip.name});
      this.tiles.push(...cells(chip.regions, size, box.x + 1, box.y + 1 + head, box.w - 2,
                               box.h - 2 - head, smallest));
    }
    this.tileOf.clear();
    for (const tile of this.tiles) for (const region of tile.items) this.tileOf.set(region.row, tile);
    if (this.selected) this.selected = this.tileOf.get(this.selected.items[0].row) || null;
    this.paintAll();
  }

  static heat(region, now) {
    if (!region.findings) return 0;
    const age = region.lastFindingTime === null ? Infinity : now - region.lastFindingTime;
    return age <= 60000 ? 3 : age <= 3600000 ? 2 : 1;
  }
  heatOf(tile, now) {
    let heat = 0;
    for (const region of tile.items) heat = Math.max(heat, ChipMap.heat(region, now));
    return heat;
  }

  paintAll() {
    this.all = true;
    this.paintSoon();
  }
  paintSoon() {
    soon('map', () => this.paint());
  }

  paint() {
    const context = this.context;
    if (!context) return;
    const now = Date.now();
    let tiles = this.dirty;
    if (this.all) {
      tiles = this.tiles;
      context.fillStyle = this.back;
      context.fillRect(0, 0, this.canvas.clientWidth, this.canvas.clientHeight);
      context.fillStyle = this.ink;
      context.font = '11px system-ui, sans-serif';
      for (const label of this.labels) {
        if (label.h) context.fillText(label.name, label.x + 3, label.y + 11, Math.max(label.w - 6, 1));
      }
    }
    // One colour after the other: the hottest last, over its neighbours.
    const byHeat = [[], [], [], []];
    for (const tile of tiles) {
      tile.heat = this.heatOf(tile, now);
      byHeat[tile.heat].push(tile);
    }
    byHeat.forEach((list, heat) => {
      context.fillStyle = this.heats[heat];
      const least = heat ? sideSeen : 1;
      for (const {x, y, w, h} of list) {
        // Whole pixels, with a gap where there is room.
        const left = Math.round(x), top = Math.round(y);
        const right = Math.round(x + w) - (w > 5 ? 1 : 0), bottom = Math.round(y + h) - (h > 5 ? 1 : 0);
        context.fillRect(left, top, Math.max(right - left, least), Math.max(bottom - top, least));
      }
    });
    this.all = false;
    this.dirty.clear();
    if (this.selected) {
      const {x, y, w, h} = this.selected;
      context.strokeStyle = this.mark;
      context.lineWidth = 2;
      context.strokeRect(x + 1, y + 1, Math.max(w - 2.5, 3), Math.max(h - 2.5, 3));
    }
  }

  tileAt(event) {
    const box = this.canvas.getBoundingClientRect();
    const x = event.clientX - box.left, y = event.clientY - box.top;
    return this.tiles.find(tile => x >= tile.x && x < tile.x + tile.w && y >= tile.y && y < tile.y + tile.h);
  }

  hottest(tile) {
    return tile.items.reduce((best, region) =>
      (region.lastFindingTime || 0) > (best.lastFindingTime || 0) ? region : best);
  }

  select(tile) {
    if (!tile || tile === this.selected) return;
    this.selected = tile;
    const region = this.hottest(tile);
    const more = tile.items.length > 1 ? ` and ${tile.items.length - 1} more` : '';
    let found = 0;
    for (const each of tile.items) found += each.findings || 0;
    this.text.textContent = `${region.name}${more} on ${region.chip || 'no chip'}: ` +
      (found ? `${found} findings, the last ${moment(region.lastFindingTime)}` : 'no findings');
    this.paintAll();
  }
  openSelected() {
    if (this.selected) this.open(this.hottest(this.selected).name);
  }

  key(event) {
    const steps = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]};
    if (event.key === 'Enter' || event.key === ' ') {
      this.openSelected();
    } else if (steps[event.key]) {
      const [dx, dy] = steps[event.key];
      const from = this.selected || this.tiles[0];
      const middle = tile => [tile.x + tile.w / 2, tile.y + tile.h / 2];
      const [x, y] = middle(from);
      let best = null, bestFar = Infinity;
      for (const tile of this.tiles) {
        const [tx, ty] = middle(tile);
        const along = (tx - x) * dx + (ty - y) * dy;
        const aside = Math.abs((tx - x) * dy) + Math.abs((ty - y) * dx);
        if (along > 0.5 && aside <= along * 2 && along + aside < bestFar) {
          best = tile;
          bestFar = along + aside;
        }
      }
      this.select(best);
    } else {
      return;
    }
    event.preventDefault();
  }
}

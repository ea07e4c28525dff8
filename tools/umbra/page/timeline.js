// How many findings there were, in sixty steps of a span of time that a person chooses.
import {soon} from '/schedule.js';

const steps = 60;

export class Timeline {
  constructor(canvas, text, select) {
    this.canvas = canvas;
    this.text = text;
    this.select = select;
    this.driver = null;
    select.addEventListener('change', () => this.load());
    setInterval(() => { if (!document.hidden) this.load(); }, 10000);
  }

  driverIs(name) {
    this.driver = name;
    this.load();
  }

  async load() {
    if (!this.driver) return;
    const driver = this.driver;
    const span = Number(this.select.value) * 1000;
    const width = span / steps;
    // Whole steps, so that a bar keeps what it counts.
    const to = Math.ceil(Date.now() / width) * width;
    const answer = await fetch(`/api/findings?driver=${encodeURIComponent(driver)}&from=${to - span}&to=${to}&steps=${steps}`)
      .then(response => response.ok ? response.json() : null, () => null);
    if (!answer || driver !== this.driver) return;
    this.from = answer.from;
    this.to = answer.to;
    this.counts = answer.counts;
    this.draw();
  }

  // A finding has just come.
  add(time) {
    if (!this.counts) return;
    if (time >= this.to) { this.load(); return; }
    const step = Math.floor((time - this.from) / (this.to - this.from) * steps);
    if (step >= 0) ++this.counts[step];
    if (this.waits) return;
    this.waits = setTimeout(() => { this.waits = null; soon('timeline', () => this.draw()); }, 1000);
  }

  coloursAre() {
    if (this.chart) { this.chart.destroy(); this.chart = null; }
    if (this.counts) this.draw();
  }

  draw() {
    const span = this.to - this.from;
    const form = span > 86400000 ? {weekday: 'short', hour: '2-digit', hour12: false}
      : span > 3600000 ? {hour: '2-digit', minute: '2-digit', hour12: false}
      : {hour: '2-digit', minute: '2-digit', second: '2-digit', hour12: false};
    const format = new Intl.DateTimeFormat([], form);
    const labels = this.counts.map((_, i) => format.format(new Date(this.from + i * span / steps)));
    let sum = 0;
    for (const each of this.counts) sum += each;
    this.text.textContent = `${sum} findings in this time`;
    if (!this.chart) {
      const style = getComputedStyle(document.documentElement);
      const dim = style.getPropertyValue('--dim').trim();
      const line = style.getPropertyValue('--line').trim();
      this.chart = new Chart(this.canvas, {
        type: 'bar',
        data: {labels, datasets: [{label: 'findings', data: this.counts, minBarLength: 0,
          backgroundColor: style.getPropertyValue('--minute').trim(), barPercentage: 1, categoryPercentage: 0.9}]},
        options: {animation: false, maintainAspectRatio: false, plugins: {legend: {display: false}},
          scales: {x: {ticks: {color: dim, maxTicksLimit: 8, maxRotation: 0}, grid: {display: false}},
            y: {beginAtZero: true, suggestedMax: 4, ticks: {color: dim, precision: 0}, grid: {color: line}}}},
      });
      return;
    }
    this.chart.data.labels = labels;
    this.chart.data.datasets[0].data = this.counts;
    this.chart.update('none');
  }
}

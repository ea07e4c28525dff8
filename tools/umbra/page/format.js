// Values as people read them.
const times = new Intl.DateTimeFormat([], {hour: '2-digit', minute: '2-digit', second: '2-digit', hour12: false});
const days = new Intl.DateTimeFormat([], {year: 'numeric', month: '2-digit', day: '2-digit'});

// Milliseconds of wall-clock time; null: has not happened.
export function moment(time) {
  if (time === null || time === undefined) return 'never';
  const date = new Date(time);
  return Date.now() - time < 43200000 ? times.format(date) : days.format(date) + ' ' + times.format(date);
}

// Seconds; null: not known.
export function duration(seconds) {
  if (seconds === null || seconds === undefined) return 'unknown';
  if (seconds < 0.001) return (seconds * 1e6).toFixed(0) + ' µs';
  if (seconds < 1) return (seconds * 1e3).toFixed(0) + ' ms';
  if (seconds < 120) return seconds.toFixed(seconds < 10 ? 1 : 0) + ' s';
  if (seconds < 7200) return Math.floor(seconds / 60) + ' min ' + Math.floor(seconds % 60) + ' s';
  if (seconds < 172800) return Math.floor(seconds / 3600) + ' h ' + Math.floor(seconds % 3600 / 60) + ' min';
  return Math.floor(seconds / 86400) + ' d ' + Math.floor(seconds % 86400 / 3600) + ' h';
}

export function count(number) {
  return number === null || number === undefined ? '' : Number(number).toLocaleString('en');
}

// A value of /api/region.
export function value(of) {
  if (of.form === 'moment') return moment(of.value);
  if (of.form === 'duration') return duration(of.value);
  if (of.form === 'boolean') return of.value ? 'yes' : 'no';
  if (of.form === 'number') return count(of.value) + (of.unit ? ' ' + of.unit : '');
  return of.value === '' ? '–' : String(of.value);
}

// make('td', {class: 'x', title: 'y'}, 'text', node...)
export function make(tag, attributes, ...children) {
  const node = document.createElement(tag);
  for (const [name, text] of Object.entries(attributes || {})) {
    if (name === 'onclick') node.addEventListener('click', text);
    else if (text !== undefined && text !== false) node.setAttribute(name, text);
  }
  node.append(...children.filter(child => child !== undefined && child !== null));
  return node;
}

// Rectangles whose areas are as given, as square as can be: each row of the layout takes rectangles
// while the worst of them becomes no longer (M. Bruls, K. Huizing, J. van Wijk, "Squarified
// Treemaps", 2000).
//
//   squarify([6, 6, 4], 0, 0, 4, 4)  ->  [[x, y, width, height], ...] in the same order
//
// `sizes` fall, and are positive.
export function squarify(sizes, x, y, width, height) {
  const boxes = new Array(sizes.length);
  let left = 0;
  for (const size of sizes) left += size;
  let at = 0;
  while (at < sizes.length) {
    const scale = width * height / left;
    const side = Math.min(width, height);
    // How far from a square the worst rectangle of a row with this sum would be.
    const worst = (sum, largest, smallest) =>
      Math.max(side * side * largest * scale / (sum * sum * scale * scale),
               sum * sum * scale * scale / (side * side * smallest * scale));
    let sum = sizes[at];
    let end = at + 1;
    let shape = worst(sum, sizes[at], sizes[at]);
    while (end < sizes.length) {
      const next = worst(sum + sizes[end], sizes[at], sizes[end]);
      if (next > shape) break;
      shape = next;
      sum += sizes[end++];
    }
    const isTall = width >= height;
    const depth = isTall ? sum * scale / height : sum * scale / width;
    let along = isTall ? y : x;
    for (let i = at; i < end; ++i) {
      const length = sizes[i] * scale / depth;
      boxes[i] = isTall ? [x, along, depth, length] : [along, y, length, depth];
      along += length;
    }
    if (isTall) { x += depth; width -= depth; } else { y += depth; height -= depth; }
    left -= sum;
    at = end;
  }
  return boxes;
}

// Cells for items that have a size each: [{x, y, w, h, items}]. Items that would have less than
// `smallest` square pixels share cells of at least 4 by 4 pixels, so that each can be seen.
export function cells(items, sizeOf, x, y, width, height, smallest) {
  if (!items.length || width < 1 || height < 1) return [];
  const sorted = items.map(item => ({item, size: Math.max(sizeOf(item), 1)}));
  sorted.sort((a, b) => b.size - a.size);
  let total = 0;
  for (const each of sorted) total += each.size;
  const scale = width * height / total;
  let large = sorted.length;
  while (large > 0 && sorted[large - 1].size * scale < smallest) --large;
  const small = sorted.slice(large);
  const sizes = sorted.slice(0, large).map(each => each.size);
  let rest = 0;
  for (const each of small) rest += each.size;
  // The small ones are one more rectangle, in its place among the others.
  let place = sizes.length;
  if (small.length) {
    rest = Math.max(rest, 2 * smallest / scale);
    while (place > 0 && sizes[place - 1] < rest) --place;
    sizes.splice(place, 0, rest);
  }
  const result = [];
  squarify(sizes, x, y, width, height).forEach(([left, top, w, h], i) => {
    if (!small.length || i !== place) {
      result.push({x: left, y: top, w, h, items: [sorted[i > place ? i - 1 : i].item]});
      return;
    }
    const columns = Math.max(1, Math.floor(w / 4));
    const rows = Math.max(1, Math.floor(h / 4));
    const each = Math.ceil(small.length / (columns * rows));
    const used = Math.ceil(small.length / each);
    const across = Math.min(columns, Math.max(1, Math.ceil(Math.sqrt(used * w / h))));
    const down = Math.ceil(used / across);
    for (let cell = 0; cell < used; ++cell) {
      result.push({
        x: left + cell % across * w / across, y: top + Math.floor(cell / across) * h / down,
        w: w / across, h: h / down,
        items: small.slice(cell * each, cell * each + each).map(one => one.item)});
    }
  });
  return result;
}

// Work on the page, one piece in each frame that the browser draws, so that no frame has to wait for
// all of it. A piece that waits already is not added again.
const waiting = new Map();
let isUnderWay = false;

export function soon(name, work) {
  waiting.set(name, work);
  if (isUnderWay) return;
  isUnderWay = true;
  requestAnimationFrame(step);
}

function step() {
  const [name, work] = waiting.entries().next().value;
  waiting.delete(name);
  work();
  isUnderWay = waiting.size > 0;
  if (isUnderWay) requestAnimationFrame(step);
}

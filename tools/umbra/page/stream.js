// The stream of changes: one for all tabs of a browser, held by a worker they share, because a
// browser opens six connections to a server and no more. Where there are no shared workers the tab
// has a stream of its own.
//
//   openStream({hello(place), frame(frame), state(text)});
//
// hello: what is known has to be asked for again; frames after place.frame follow.

export function openStream(listener) {
  const take = message => {
    if (message.kind === 'hello') listener.hello(message.place);
    else if (message.kind === 'frame') listener.frame(JSON.parse(message.text));
    else listener.state(message.text);
  };
  if (typeof SharedWorker === 'function') {
    const worker = new SharedWorker('/worker.js', {name: 'umbra-stream', type: 'module'});
    worker.port.onmessage = event => take(event.data);
    worker.port.start();
    addEventListener('pagehide', () => worker.port.postMessage('close'));
    return;
  }
  import('/source.js').then(({source}) => source(take));
}

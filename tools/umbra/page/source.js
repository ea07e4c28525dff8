// The server-sent events, as messages: {kind: 'hello', place}, {kind: 'frame', number,
// text}, {kind: 'state', text}. The text of a frame is JSON; who uses it takes it apart.
export function source(take) {
  const events = new EventSource('/api/stream');
  let refused = false;
  const told = event => JSON.parse(event.data);
  events.addEventListener('hello', event => {
    refused = false;
    take({kind: 'hello', place: told(event)});
    take({kind: 'state', text: 'connected'});
  });
  // The stream goes on where it was.
  events.addEventListener('again', () => {
    refused = false;
    take({kind: 'state', text: 'connected'});
  });
  events.addEventListener('frame', event => take({kind: 'frame', number: Number(event.lastEventId.split('-')[1]), text: event.data}));
  events.addEventListener('refused', event => {
    refused = true;
    take({kind: 'state', text: told(event).error});
  });
  events.onerror = () => {
    if (!refused) take({kind: 'state', text: 'disconnected'});
    // A browser gives up after some errors.
    if (events.readyState === EventSource.CLOSED) {
      events.close();
      setTimeout(() => source(take), 2000);
    }
  };
}

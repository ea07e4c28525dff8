// Shared by all tabs: holds the stream and passes on what comes.
import {source} from '/source.js';

const ports = new Set();
let place = null;   // of the last frame that was passed on
let state = 'connecting';

source(message => {
  if (message.kind === 'hello') place = message.place;
  if (message.kind === 'frame' && place) place.frame = message.number;
  if (message.kind === 'state') state = message.text;
  for (const port of ports) port.postMessage(message);
});

onconnect = event => {
  const port = event.ports[0];
  ports.add(port);
  port.onmessage = message => { if (message.data === 'close') ports.delete(port); };
  port.postMessage({kind: 'state', text: state});
  // A new tab asks for what is known, and gets the frames from here on.
  if (place) port.postMessage({kind: 'hello', place: {...place}});
};

// The page's link to the module: a QWebChannel over a WebSocket to the web engine, on the port the page
// address names ("?ws=PORT") and under the access token that is the first segment of the page's path.

/* global QWebChannel */

/** The token and the WebSocket address of this page. */
export function channelAddress(location) {
  const token = location.pathname.split('/').filter(Boolean)[0] || '';
  const port = new URLSearchParams(location.search).get('ws');
  return { token, url: `ws://${location.hostname}:${port}/${token}` };
}

/**
 * Connects and resolves with the channel's objects ({ broadcast, site }). `onClose` hears a link that ends
 * (the module stopped, or the token was refused).
 */
export function connect(location, onClose) {
  const { url } = channelAddress(location);
  return new Promise((resolve, reject) => {
    const socket = new WebSocket(url);
    let open = false;
    socket.onopen = () => {
      open = true;
      // eslint-disable-next-line no-new
      new QWebChannel(socket, (channel) => resolve(channel.objects));
    };
    socket.onerror = () => {
      if (!open) reject(new Error(`cannot reach the module at ${url}`));
    };
    socket.onclose = (event) => {
      if (!open) reject(new Error(`the module refused the link (${event.code} ${event.reason})`));
      else if (onClose) onClose(event);
    };
  });
}

/** Calls a method of a channel object and resolves with its result. */
export function invoke(object, method, ...args) {
  return new Promise((resolve) => object[method](...args, resolve));
}

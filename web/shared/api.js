// One call of the web API, for every page.

/**
 * A call that did not succeed. `code` is the API's number, or one of "network" (no answer), "login"
 * (the server requires a login) and "server" (an answer that is not the API's). `detail` comes with
 * the API's code: a text, or {name, reason} for a parameter that it refuses. `wait` says after how many
 * seconds another try may succeed; 0: it is not known.
 */
export class ApiError extends Error {
  constructor(code, detail = '', wait = 0) {
    super(`API error ${code}`);
    this.code = code;
    this.detail = detail;
    this.wait = wait;
  }
}

/** Parses JSON and keeps integers that a JavaScript number can't hold, where the browser can. */
export function parseJson(text) {
  return JSON.parse(text, (_key, value, context) =>
      typeof value === 'number' && /^-?\d+$/.test(context?.source) && !Number.isSafeInteger(value)
        && JSON.rawJSON ? JSON.rawJSON(context.source) : value);
}

let askToSignIn; // see onSignedOut

/** Lets `ask` sign in again when a call finds that nobody is signed in; the call is then repeated. */
export function onSignedOut(ask) {
  askToSignIn = ask;
}

/**
 * Calls version 1 of `method` of `api` with `params` at `path`, which is relative to the page, and
 * returns the answer's data. Throws ApiError, nothing else. With `keepalive` the call is made even
 * when the page is left.
 */
export async function callApi(path, api, method, params = {}, {keepalive = false} = {}) {
  // Built from the origin, because a page whose own address holds a login may not fetch relative to it.
  const address = new URL(path, location.origin + location.pathname);
  let response;
  let text;
  try {
    response = await fetch(address, {
      method: 'POST',
      headers: {'Content-Type': 'application/json'},
      body: JSON.stringify({...params, api, version: 1, method}),
      cache: 'no-store',
      keepalive,
    });
    text = await response.text();
  } catch {
    throw new ApiError('network');
  }
  if (response.status === 401) {
    if (keepalive || !await askToSignIn?.()) throw new ApiError('login');
    return callApi(path, api, method, params);
  }
  let answer;
  try {
    answer = parseJson(text);
  } catch {
    throw new ApiError('server');
  }
  if (answer?.success === true) return answer.data;
  if (typeof answer?.error?.code !== 'number') throw new ApiError('server');
  throw new ApiError(answer.error.code, answer.error.errors, Number(response.headers.get('Retry-After')) || 0);
}

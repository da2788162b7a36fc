// Explains an ApiError in plain words.

const GENERAL = {
  network: 'The server gave no answer. Check the connection and try again.',
  login: 'Your login has ended. Reload the page to log in again.',
  server: 'The server could not answer. Try again in a moment.',
  100: 'Something went wrong on the server. Try again in a moment.',
  101: 'The server did not accept this request.',
  102: 'The server does not offer share links.',
  103: 'The server does not know this action.',
  104: 'The server does not offer this version.',
  105: 'You are not allowed to do this.',
  106: 'The request is too large, or holds text that cannot be stored.',
  117: 'The share links cannot be reached at the moment. Try again later.',
  120: 'The server refused a value.',
  1000: 'This link does not open.',
  1001: 'The password is wrong.',
  1002: 'This account may not open the link.',
  1003: 'The user name or the password is wrong.',
  1004: 'Logging out failed.',
  1005: 'This link no longer exists.',
  1006: 'Your visit has ended. Log in to the link again.',
  1007: 'This link belongs to somebody else.',
  1008: 'The link does not open from your address at the moment.',
  1009: 'Name at least one user or one group.',
  1010: 'Give the link a password.',
  1011: 'Say where visitors are sent.',
  1012: 'The link has been opened as often as it may be.',
  2000: 'This folder is not for you to share any more.',
  2001: 'This file or folder is not there any more.',
  2002: 'This is not the folder that it was.',
  2003: 'This link’s data name nothing that can be shared.',
  2009: 'Files can’t be shared at the moment.',
};

// What a text that comes with 101 or 117 means, and the field that it is about.
const DETAILS = [
  [/invalid project name/, 'A link cannot move to another project.', 'project_name'],
  [/invalid expire times/, 'Enter a whole number, 0 or more.', 'expire_times'],
  [/bad (?<field>\w+)/, 'The server did not accept this value.', null],
  [/db (create|update) entry fail/,
    'The link could not be stored. Check that its times exist and that its texts have no unusual characters.', null],
  [/db delete entry fail/, 'The link could not be deleted. Try again in a moment.', null],
  [/gc error/, 'Cleaning did not work. Try again in a moment.', null],
];

const FIELD_OF_CODE = {
  1001: 'password', 1003: 'mosk_password', 1009: 'protect_users', 1010: 'protect_password',
  1011: 'redirect_uri',
};

// Values of the right type that the API refuses.
const CONDITIONS = {
  project_name: 'Enter the name of a project.',
  protect_password: 'Give the link a password.',
  expire_times: 'Enter a whole number, 0 or more.',
};

const REASONS = {
  required: 'This value is needed.',
  type: 'This value has the wrong form.',
  condition: 'This value is not possible here.',
};

/**
 * What `error` means: {text, field}. `field` is the name of the parameter that it concerns, or null
 * when it concerns none. Anything but an ApiError is reported as a failure of the page itself.
 */
export function explain(error) {
  const {code, detail} = error;
  if (!(code in GENERAL)) {
    return {text: code === undefined ? 'The page made a mistake. Reload it.' : `Error ${code}.`, field: null};
  }
  if (code === 120 && typeof detail?.name === 'string') {
    const words = detail.reason === 'condition' ? CONDITIONS[detail.name] : undefined;
    return {text: words ?? REASONS[detail.reason] ?? GENERAL[120], field: detail.name};
  }
  if (typeof detail === 'string' && (code === 101 || code === 117)) {
    for (const [pattern, text, field] of DETAILS) {
      const match = detail.match(pattern);
      if (match) return {text, field: match.groups?.field ?? field};
    }
  }
  return {text: GENERAL[code], field: FIELD_OF_CODE[code] ?? null};
}

// Explains an ApiError in plain words.

import {hasText, t} from '/shared/texts.js';

// What a text that comes with 101 or 117 means, and the field that it is about.
const DETAILS = [
  [/invalid project name/, 'error_project_moves', 'project_name'],
  [/invalid expire times/, 'error_not_a_count', 'expire_times'],
  [/bad (?<field>\w+)/, 'error_bad_value', null],
  [/db (create|update) entry fail/, 'error_not_stored', null],
  [/db delete entry fail/, 'error_not_deleted', null],
  [/gc error/, 'error_not_cleaned', null],
];

const FIELD_OF_CODE = {
  1001: 'password', 1003: 'mosk_password', 1009: 'protect_users', 1010: 'protect_password',
  1011: 'redirect_uri',
};

// Values of the right type that the API refuses.
const CONDITIONS = {
  project_name: 'error_no_project',
  protect_password: 'error_1010',
  expire_times: 'error_not_a_count',
};

const REASONS = {
  required: 'error_value_needed',
  type: 'error_value_form',
  condition: 'error_value_impossible',
};

/**
 * What `error` means: {text, field}. `field` is the name of the parameter that it concerns, or null
 * when it concerns none. Anything but an ApiError is reported as a failure of the page itself.
 */
export function explain(error) {
  const {code, detail} = error;
  if (!hasText(`error_${code}`)) {
    return {text: code === undefined ? t('error_page') : t('error_other', {code}), field: null};
  }
  if (code === 120 && typeof detail?.name === 'string') {
    const key = (detail.reason === 'condition' && CONDITIONS[detail.name]) || REASONS[detail.reason] || 'error_120';
    return {text: t(key), field: detail.name};
  }
  if (typeof detail === 'string' && (code === 101 || code === 117)) {
    for (const [pattern, key, field] of DETAILS) {
      const match = detail.match(pattern);
      if (match) return {text: t(key), field: match.groups?.field ?? field};
    }
  }
  return {text: t(`error_${code}`), field: FIELD_OF_CODE[code] ?? null};
}

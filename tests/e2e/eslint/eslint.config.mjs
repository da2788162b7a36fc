// The linter's recommended rules, for all JavaScript of the repository.
import js from '@eslint/js';
import globals from 'globals';

export default [
  js.configs.recommended,
  {
    languageOptions: {globals: globals.browser},
    rules: {'no-control-regex': 'off'}, // The pages look for control characters on purpose.
  },
  {files: ['web/webapi/docs/*.js', 'web/link/namespace.js'], languageOptions: {sourceType: 'script'}},
];

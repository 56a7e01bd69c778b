import js from '@eslint/js';
import globals from 'globals';

export default [
  { ignores: ['build/', 'out/'] },
  js.configs.recommended,
  {
    languageOptions: { globals: globals.node },
    linterOptions: { reportUnusedDisableDirectives: 'error' },
    rules: {
      eqeqeq: 'error',
      'no-var': 'error',
      'object-shorthand': 'error',
      'prefer-const': 'error',
      'prefer-template': 'error',
    },
  },
  { files: ['**/*.js', '**/*.cjs'], languageOptions: { sourceType: 'commonjs' } },
  {
    // They show how an application imports the package.
    files: ['examples/**'],
    rules: { 'no-restricted-imports': ['error', { patterns: ['**/js/**'] }] },
  },
  {
    files: [
      'js/renderer/*.mjs',
      'examples/meeting/page/*.mjs',
      'examples/quickstart/page/*.mjs',
      'examples/sfu/guest/*.mjs',
      'test/js/browser/*.mjs',
      'test/js/webrtc/browser.test.mjs',
      'test/support/meeting_app/meeting_page.mjs',
    ],
    languageOptions: { globals: globals.browser },
  },
];

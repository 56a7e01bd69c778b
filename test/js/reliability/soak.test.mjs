// The short form of the soak that docs/reliability.md describes.

import { trials } from '../../reliability/trials.mjs';
import { testShortForm } from '../../support/reliability/short_form.mjs';

testShortForm(trials.find(({ name }) => name === 'soak'));

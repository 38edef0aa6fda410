// The page's start: every part loads at once; none waits for another.
import {initSettings} from './settings.js';
import {initRuns} from './runs.js';
import {initMap} from './map.js';
import {initProfile} from './profile.js';
import {initFiles} from './files.js';
import {initViews} from './views.js';

initMap();
initProfile();
Promise.all([initSettings(), initRuns(), initFiles(), initViews()]).then(() => {
  document.body.dataset.ready = 'true';
});

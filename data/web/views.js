// The views below the map: 3D view, orbit chart, colour map editor, scintillation panel.
// Each is drawn at start and after every run that may have changed what it shows.
import {initView3d, refreshView3d} from './view3d.js';
import {refreshOrbitChart} from './orbitchart.js';
import {initColours} from './colours.js';
import {initScint, onScintRunEnded} from './scint.js';

const ORBIT_RUNS = new Set(['load-orbits', 'galileo', 'obs', 'raw', 'autorun']);

export function initViews() {
  document.addEventListener('run-ended', ({detail: run}) => {
    if (ORBIT_RUNS.has(run.command)) {
      refreshView3d();
      refreshOrbitChart();
    }
    onScintRunEnded(run);
  });
  return Promise.all([initView3d(), refreshOrbitChart(), initColours(), initScint()]);
}

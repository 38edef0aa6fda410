// The orbit chart: the orbit planes of the healthy satellites drawn flat, node along x,
// each satellite on its plane at its reference time. The server draws it; with no orbits
// loaded it shows the axes and the grid alone.

import {showImage} from './api.js';

export async function refreshOrbitChart() {
  const img = document.getElementById('orbit-chart');
  const response = await fetch(`/api/orbit-chart.png?t=${Date.now()}`);
  if (response.status === 409) return;  // a run goes on; drawn again at its end
  document.getElementById('orbit-chart-note').textContent =
      response.ok ? '' : `the orbit chart could not be drawn (${response.status})`;
  if (!response.ok) return;
  await showImage(img, response);
}

// The scintillation panel: Load target, Fit, Generate and Clear run scint-load, scint-fit,
// scint-generate and scint-clear with the settings of the Scintillation tab, as any other
// run of the page; at each one's end the strip chart (amplitude and phase) and the fit's
// graph are fetched again. Targets and fits pile up on the graph until Clear.
import {api, showImage} from './api.js';
import {renderPanels} from './settings.js';

async function showPlot(img, path) {
  const response = await fetch(`${path}?t=${Date.now()}`);
  if (response.status === 409) return;  // a run goes on
  img.hidden = response.status !== 200;
  if (response.status !== 200) return;
  await showImage(img, response);
}

export async function refreshScintPlots() {
  const strip = document.getElementById('scint-strip');
  await Promise.all([showPlot(strip, '/api/scint/strip.png'),
    showPlot(document.getElementById('scint-fit'), '/api/scint/fit.png')]);
  document.getElementById('scint-strip-empty').hidden = !strip.hidden;
}

// A run of this panel has ended: scint-load sets FilterPoles and FilterZeros from the
// target file, so the forms are read again too.
export async function onScintRunEnded(run) {
  if (!run.command.startsWith('scint-')) return;
  await refreshScintPlots();
  if (run.command === 'scint-load') {
    const {ok, data} = await api('/api/settings');
    if (ok) renderPanels(data.panels);
  }
}

export function initScint() {
  document.getElementById('scint-settings').addEventListener('click', () => {
    document.querySelector('#panel-tabs button[data-panel="scintillation"]')?.click();
    document.querySelector('.settings').scrollIntoView({behavior: 'smooth'});
  });
  return refreshScintPlots();
}

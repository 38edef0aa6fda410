// The profile plot beside the map: electron density against height from the server's
// density model. Draw clears the plot first, Draw over keeps the profiles shown so that
// they can be compared, Clear leaves the axes. An empty field takes the scenario's value
// (start position, month, hour); the scale and colour are profileScale and profileColour.
import {api} from './api.js';

const FIELDS = [['lat', 'profile-lat'], ['lon', 'profile-lon'], ['month', 'profile-month'],
  ['ut', 'profile-ut']];

function note(text, bad = false) {
  const node = document.getElementById('profile-note');
  node.textContent = text;
  node.classList.toggle('bad', bad);
}

async function showPlot() {
  const response = await fetch(`/api/map/profile.png?v=${Date.now()}`);
  if (response.status !== 200) return;
  const img = document.getElementById('profile-plot');
  const old = img.src;
  img.src = URL.createObjectURL(await response.blob());
  await img.decode().catch(() => {});
  if (old.startsWith('blob:')) URL.revokeObjectURL(old);
  img.dataset.version = String(Number(img.dataset.version || 0) + 1);
}

async function draw(over) {
  const body = {over};
  for (const [key, id] of FIELDS) {
    const value = document.getElementById(id).value.trim();
    if (value !== '') body[key] = Number(value);
  }
  const {ok, data} = await api('/api/map/profile', body);
  if (!ok) return note(data.error, true);
  note(`${data.lat.toFixed(2)}°, ${data.lon.toFixed(2)}°, month ${data.month}, ` +
      `${data.ut} h UT: peak ${data.peakDensity.toExponential(2)} m⁻³ at ${data.peakHeight} km`);
  await showPlot();
}

export function initProfile() {
  document.getElementById('profile-form').addEventListener('submit', (event) => {
    event.preventDefault();
    draw(false);
  });
  document.getElementById('profile-over').addEventListener('click', () => draw(true));
  document.getElementById('profile-clear').addEventListener('click', async () => {
    const {ok, data} = await api('/api/map/profile/clear', {});
    if (!ok) return note(data.error, true);
    note('');
    await showPlot();
  });
  showPlot();
}

// The map: a 646 x 475 stack of layers, each with its opacity (0 to 255; 0 hides a layer
// and keeps what it holds). With the server's renderer the layers are its PNGs; without
// one the page draws a graticule and the sky plot itself from the run's scene.
// Show TEC asks the server for the TEC map of the chosen model; the NeQuick map takes
// about a second on the server's worker, and a "tec" event says when it is drawn.
import {api, element} from './api.js';

const WIDTH = 646;
const HEIGHT = 475;
// Each slider is the layer's opacity setting: the map command draws with the same values.
const LAYERS = [
  {id: 'base', title: 'Base map', fixed: true},
  {id: 'overlayLayer', title: 'Overlay', setting: 'overlayOpacity'},
  {id: 'klobucharLayer', title: 'Klobuchar TEC', setting: 'klobucharOpacity'},
  {id: 'nequickLayer', title: 'NeQuick TEC', setting: 'nequickOpacity'},
  {id: 'skyPlotLayer', title: 'Sky plot', setting: 'skyPlotOpacity'},
  {id: 'bubbleLayer', title: 'Bubble', setting: 'bubbleOpacity'},
];

let renderer = false;
let refreshing = false;
let pending = false;

// The map's projection: longitude and latitude in degrees to canvas pixels.
export function project(lat, lon) {
  let x = (lon / 360 + 0.5) * WIDTH;
  if (x > WIDTH) x -= WIDTH;
  return [x, (1.0 - (lat + 90.0) / 180.0) * HEIGHT];
}

function colour(rgb) {
  return `#${rgb.toString(16).padStart(6, '0')}`;
}

function drawGraticule(canvas) {
  const g = canvas.getContext('2d');
  const sea = g.createLinearGradient(0, 0, 0, HEIGHT);
  sea.addColorStop(0, '#16324f');
  sea.addColorStop(0.5, '#1d4e77');
  sea.addColorStop(1, '#16324f');
  g.fillStyle = sea;
  g.fillRect(0, 0, WIDTH, HEIGHT);
  g.font = '10px system-ui, sans-serif';
  g.fillStyle = 'rgba(255,255,255,0.55)';
  for (let lon = -180; lon <= 180; lon += 30) {
    const [x] = project(0, lon === 180 ? 179.999 : lon);
    g.strokeStyle = lon === 0 ? 'rgba(255,255,255,0.45)' : 'rgba(255,255,255,0.16)';
    g.beginPath(); g.moveTo(x + 0.5, 0); g.lineTo(x + 0.5, HEIGHT); g.stroke();
    if (lon > -180 && lon < 180) g.fillText(`${lon}°`, x + 3, HEIGHT - 4);
  }
  for (let lat = -60; lat <= 60; lat += 30) {
    const [, y] = project(lat, 0);
    g.strokeStyle = lat === 0 ? 'rgba(255,255,255,0.45)' : 'rgba(255,255,255,0.16)';
    g.beginPath(); g.moveTo(0, y + 0.5); g.lineTo(WIDTH, y + 0.5); g.stroke();
    g.fillText(`${lat}°`, 3, y - 3);
  }
}

// Receiver as a small house, satellites green when in view and yellow below the mask,
// in the colours of the program's sky plot.
function drawSkyPlot(canvas, scene) {
  const g = canvas.getContext('2d');
  g.clearRect(0, 0, WIDTH, HEIGHT);
  g.lineWidth = 1.5;
  g.font = 'bold 10px system-ui, sans-serif';
  for (const sat of scene.satellites) {
    const [x, y] = project(sat.lat, sat.lon);
    g.fillStyle = colour(sat.visible ? 0x00ff00 : 0xffff00);
    g.strokeStyle = colour(sat.visible ? 0x008000 : 0x000080);
    g.beginPath(); g.arc(x, y, 4.5, 0, 2 * Math.PI); g.fill(); g.stroke();
    g.fillStyle = '#ffffff';
    g.fillText(String(sat.prn), x + 6, y + 4);
  }
  if (scene.receiver) {
    const [x, y] = project(scene.receiver.lat, scene.receiver.lon);
    g.fillStyle = colour(0x008000);
    g.strokeStyle = colour(0x800000);
    g.beginPath();
    g.moveTo(x, y + 10); g.lineTo(x, y); g.lineTo(x + 3, y - 5); g.lineTo(x + 6, y);
    g.lineTo(x + 6, y + 10); g.closePath(); g.fill(); g.stroke();
  }
  canvas.dataset.satellites = String(scene.satellites.length);
}

async function loadLayerPng(layer, version) {
  const img = document.querySelector(`#map-stack [data-layer="${layer}"] img`);
  const response = await fetch(`/api/map/${layer}.png?v=${version}`);
  if (response.status !== 200) {
    img.hidden = true;  // 204: nothing drawn on this layer yet
    return;
  }
  const old = img.src;
  img.src = URL.createObjectURL(await response.blob());
  img.hidden = false;
  if (old.startsWith('blob:')) URL.revokeObjectURL(old);
}

// The sliders take the opacity settings' values (after the settings load or change), and
// the TEC model's choice takes tecMapModel's.
export function syncOpacities() {
  for (const slider of document.querySelectorAll('#layer-controls input[type=range]'))
    slider.syncFromSettings();
  const field = document.getElementById('setting-tecMapModel');
  const model = document.getElementById('tec-model');
  if (field && model && [...model.options].some((o) => o.value === field.dataset.saved))
    model.value = field.dataset.saved;
}

let tecPressed = 0;

function tecNote(text, bad = false) {
  const note = document.getElementById('tec-state');
  note.textContent = text;
  note.classList.toggle('bad', bad);
}

function tecBusy(busy) {
  const button = document.getElementById('show-tec');
  button.disabled = busy;
  button.dataset.state = busy ? 'busy' : button.dataset.state;
  document.getElementById('map-stack').classList.toggle('busy', busy);
}

// The map of the layer the server drew is fetched at once, and the time from the press
// to the picture on screen is kept on the button (data-shown-ms).
async function showTecLayer(status) {
  const layer = LAYERS.find((l) => l.id === status.layer);
  await loadLayerPng(layer.id, Date.now());
  const img = document.querySelector(`#map-stack [data-layer="${layer.id}"] img`);
  await img.decode().catch(() => {});
  const button = document.getElementById('show-tec');
  const shown = tecPressed ? performance.now() - tecPressed : 0;
  tecPressed = 0;
  button.dataset.shownMs = String(Math.round(shown));
  button.dataset.state = 'ready';
  const computed = status.cached ? 'already drawn for these settings' :
      `computed in ${status.seconds.toFixed(2)} s`;
  tecNote(`${layer.title} map ${computed}` + (shown ? `, shown ${(shown / 1000).toFixed(2)} s ` +
      'after the press' : ''));
}

// The end of a map the server computed, told by the "tec" event.
export function onTecEvent(status) {
  tecBusy(false);
  if (status.state === 'failed') {
    document.getElementById('show-tec').dataset.state = 'failed';
    tecNote(`TEC map failed: ${status.error}`, true);
    return;
  }
  if (status.state === 'ready') showTecLayer(status);
}

async function showTec() {
  const model = document.getElementById('tec-model').value;
  const saved = document.getElementById('setting-tecMapModel');
  if (!saved || saved.dataset.saved !== model) {
    const {ok, data} = await api('/api/settings', {tecMapModel: model});
    if (!ok || !data.ok) return tecNote('tecMapModel was refused', true);
    if (saved) saved.value = saved.dataset.saved = data.values.tecMapModel;
  }
  tecPressed = performance.now();
  const {ok, status, data} = await api('/api/map/tec', {});
  if (!ok) {
    tecPressed = 0;
    return tecNote(data.error, true);
  }
  if (status === 202) {
    tecBusy(true);
    tecNote(`computing the ${model === '0' ? 'NeQuick' : 'Klobuchar'} map…`);
    return;
  }
  showTecLayer(data);
}

function initTec() {
  document.getElementById('show-tec').addEventListener('click', showTec);
  // A map still being computed when the page opened (a reload) ends with its event.
  api('/api/map/tec').then(({ok, data}) => {
    if (ok && data.state === 'busy') tecBusy(true);
  });
}

export async function refreshMap() {
  if (refreshing) {
    pending = true;
    return;
  }
  refreshing = true;
  const {ok, data} = await api('/api/map/scene');
  if (ok) {
    renderer = data.renderer;
    if (renderer) {
      await Promise.all(LAYERS.map((l) => loadLayerPng(l.id, data.version)));
    } else {
      const canvas = document.querySelector('#map-stack [data-layer-canvas="skyPlotLayer"]');
      drawSkyPlot(canvas, data);
    }
  }
  refreshing = false;
  if (pending) {
    pending = false;
    refreshMap();
  }
}

function layerControl(layer, div) {
  const id = `opacity-${layer.id}`;
  const slider = element('input', {id, type: 'range', min: '0', max: '255', step: '1'});
  const value = element('output', {for: id});
  const apply = () => {
    div.style.opacity = String(slider.value / 255);
    value.textContent = slider.value;
  };
  slider.value = '255';
  slider.addEventListener('input', apply);
  slider.addEventListener('change', async () => {
    const {ok, data} = await api('/api/settings', {[layer.setting]: slider.value});
    const field = document.getElementById(`setting-${layer.setting}`);
    if (ok && data.ok && field) field.value = field.dataset.saved = data.values[layer.setting];
  });
  slider.syncFromSettings = () => {
    const field = document.getElementById(`setting-${layer.setting}`);
    if (field) slider.value = field.dataset.saved;
    apply();
  };
  apply();
  return element('div', {class: 'layer-control'}, element('label', {for: id, text: layer.title}),
      slider, value);
}

export function initMap() {
  const stack = document.getElementById('map-stack');
  const controls = document.getElementById('layer-controls');
  for (const layer of LAYERS) {
    const div = element('div', {class: 'layer'});
    div.dataset.layer = layer.id;
    div.append(element('img', {alt: '', hidden: ''}));
    if (layer.id === 'base' || layer.id === 'skyPlotLayer') {
      const canvas = element('canvas', {width: WIDTH, height: HEIGHT});
      canvas.dataset.layerCanvas = layer.id;
      div.append(canvas);
      if (layer.id === 'base') drawGraticule(canvas);
    }
    stack.append(div);
    if (!layer.fixed) controls.append(layerControl(layer, div));
  }
  initTec();
  refreshMap().then(() => {
    document.getElementById('map-note').textContent = renderer ? '' :
        'drawn in the page: this server has no map renderer';
    for (const canvas of stack.querySelectorAll('canvas')) canvas.hidden = renderer;
    for (const tool of document.querySelectorAll('.map-tools, .profile')) tool.hidden = !renderer;
  });
}

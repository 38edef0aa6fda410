// Runs: loading orbits, starting a run, its progress and messages as the server sends
// them, and Stop, which acts as the first Ctrl-C on the command line.
import {api, element} from './api.js';
import {onTecEvent, refreshMap} from './map.js';
import {refreshFiles, showOutputs} from './files.js';

const ORBIT_FILE = /\.(txt|alm|yuma|nav|rnx|\d\dn)$/i;
const CONFIRM = {
  'nav': 'Write the navigation message of one satellite (simulated.nvb, simulated.nva)?',
  'nav-all': 'Write the navigation messages of PRN 1 to 32 (NAV/navbin<prn>, navascii<prn>)?',
};

function log(level, text) {
  const list = document.getElementById('messages');
  const time = new Date().toLocaleTimeString();
  list.append(element('li', {class: level}, element('time', {text: time}), ` ${text}`));
  list.scrollTop = list.scrollHeight;
}

function setProgress(percent) {
  const shown = Math.max(0, Math.min(100, percent));
  document.getElementById('progress-bar').style.width = `${shown}%`;
  document.getElementById('progress-text').textContent = `${Math.floor(shown)}%`;
  document.querySelector('.progress').setAttribute('aria-valuenow', String(Math.floor(shown)));
}

function showOrbits(orbits) {
  const pill = document.getElementById('orbit-pill');
  pill.textContent = orbits.valid ? `${orbits.satellites} satellites loaded` : 'no orbits';
  pill.classList.toggle('good', orbits.valid);
}

function showState(status) {
  const running = status.state === 'running';
  for (const b of document.querySelectorAll('[data-run], #orbit-load')) b.disabled = running;
  document.getElementById('stop').disabled = !running;
  const pill = document.getElementById('run-pill');
  pill.textContent = running ? `${status.command} running` :
      status.command ? `${status.command} ${status.state}` : 'idle';
  pill.className = `pill ${status.state}`;
  if (status.orbits) showOrbits(status.orbits);
}

function onRunEvent(run) {
  showState(run);
  if (run.state === 'running') {
    setProgress(0);
    log('info', `${run.command} started`);
    return;
  }
  const words = {finished: 'finished', stopped: 'stopped by the user; files closed whole',
    failed: 'failed'};
  log(run.state === 'failed' ? 'error' : 'info', `${run.command} ${words[run.state]}`);
  for (const o of run.outputs || []) log('info', `wrote ${o.file || o.path}`);
  showOutputs(run.outputs || []);
  refreshFiles();
  refreshMap();
  document.dispatchEvent(new CustomEvent('run-ended', {detail: run}));
}

async function start(body) {
  const {ok, data} = await api('/api/runs', body);
  if (!ok) log('error', data.error);
}

async function refreshOrbitFiles() {
  const {ok, data} = await api('/api/files');
  const select = document.getElementById('orbit-file');
  select.replaceChildren();
  if (!ok) return;
  const files = data.files.filter((f) => ORBIT_FILE.test(f.file));
  if (!files.length)
    select.append(element('option', {value: '', text: 'none in the data directory'}));
  for (const f of files) select.append(element('option', {value: f.file, text: f.file}));
}

async function upload(input) {
  const file = input.files[0];
  if (!file) return;
  const form = new FormData();
  form.append('file', file);
  form.append('type', document.getElementById('orbit-type').value);
  const response = await fetch('/api/orbits/upload', {method: 'POST', body: form});
  input.value = '';
  if (response.status === 413)
    return log('error', `${file.name} is larger than the 16 MB an upload may be`);
  const data = await response.json().catch(() => ({}));
  if (!response.ok) return log('error', data.error || `upload refused (${response.status})`);
  log('info', `uploaded ${data.file}`);
  refreshOrbitFiles();
}

function listen(since) {
  const events = new EventSource(`/api/events?since=${since}`);
  events.addEventListener('run', (e) => onRunEvent(JSON.parse(e.data)));
  events.addEventListener('progress', (e) => setProgress(JSON.parse(e.data).percent));
  events.addEventListener('message', (e) => {
    const m = JSON.parse(e.data);
    log(m.level, m.title ? `${m.title}: ${m.text}` : m.text);
  });
  events.addEventListener('map', () => refreshMap());
  events.addEventListener('tec', (e) => onTecEvent(JSON.parse(e.data)));
}

export async function initRuns() {
  for (const button of document.querySelectorAll('[data-run]')) {
    button.addEventListener('click', () => {
      const command = button.dataset.run;
      if (CONFIRM[command] && !window.confirm(CONFIRM[command])) return;
      start({command});
    });
  }
  document.getElementById('stop').addEventListener('click', async () => {
    const {ok, data} = await api('/api/runs/stop', {});
    if (!ok) log('error', data.error);
  });
  document.getElementById('orbit-load').addEventListener('click', () => {
    const file = document.getElementById('orbit-file').value;
    if (!file)
      return log('error', 'no orbit file chosen: upload one or put it in the data directory');
    start({command: 'load-orbits', file, type: document.getElementById('orbit-type').value});
  });
  const uploadInput = document.getElementById('orbit-upload');
  uploadInput.addEventListener('change', () => upload(uploadInput));
  const [{ok, data}] = await Promise.all([api('/api/status'), refreshOrbitFiles()]);
  if (!ok) return log('error', data.error);
  showState(data);
  setProgress(data.progress);
  showOutputs(data.outputs);
  document.title = `Vorel – ${data.dataDir}`;
  listen(data.lastEvent);
}

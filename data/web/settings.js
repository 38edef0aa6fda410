// The scenario pages: one tab per panel, every setting with its unit, range and meaning
// as the server's tables give them. A changed field goes to the server at once and is
// checked there by the same rules as --set; a refusal is shown beside the field.
import {api, element} from './api.js';
import {syncOpacities} from './map.js';

let activePanel = 'scenario';

function fieldRow(setting) {
  const id = `setting-${setting.name}`;
  let input;
  if (setting.choices) {
    input = element('select', {id, name: setting.name});
    for (const choice of setting.choices)
      input.append(element('option', {value: choice, text: choice}));
  } else {
    input = element('input', {id, name: setting.name, type: 'text', spellcheck: 'false'});
  }
  input.value = setting.value;
  input.dataset.saved = setting.value;
  const error = element('span', {class: 'field-error', id: `${id}-error`, role: 'alert'});
  const hint = [setting.type, setting.range].filter(Boolean).join(', ');
  input.addEventListener('change', () => submit(setting.name, input, error));
  return element('div', {class: 'field'},
      element('label', {for: id, text: setting.name}),
      element('div', {class: 'input-line'}, input,
          element('span', {class: 'unit', text: setting.unit || ''}), error),
      element('div', {class: 'meaning', text: setting.meaning + (hint ? ` (${hint})` : '')}));
}

async function submit(name, input, error) {
  const {ok, data} = await api('/api/settings', {[name]: input.value});
  if (ok && data.ok) {
    input.value = data.values[name];
    input.dataset.saved = input.value;
    input.classList.remove('invalid');
    error.textContent = '';
    input.classList.add('saved');
    syncOpacities();
    setTimeout(() => input.classList.remove('saved'), 800);
  } else {
    input.classList.add('invalid');
    error.textContent = (data.errors && data.errors[name]) || data.error || 'refused';
  }
}

function showPanel(id) {
  activePanel = id;
  for (const tab of document.querySelectorAll('#panel-tabs button'))
    tab.setAttribute('aria-selected', String(tab.dataset.panel === id));
  for (const panel of document.querySelectorAll('#panels .panel'))
    panel.hidden = panel.dataset.panel !== id;
}

export function renderPanels(panels) {
  const tabs = document.getElementById('panel-tabs');
  const holder = document.getElementById('panels');
  tabs.replaceChildren();
  holder.replaceChildren();
  for (const panel of panels) {
    const tab = element('button', {type: 'button', role: 'tab', text: panel.title});
    tab.dataset.panel = panel.id;
    tab.addEventListener('click', () => showPanel(panel.id));
    tabs.append(tab);
    const form = element('form', {class: 'panel', autocomplete: 'off'});
    form.dataset.panel = panel.id;
    form.addEventListener('submit', (event) => event.preventDefault());
    for (const setting of panel.settings) form.append(fieldRow(setting));
    holder.append(form);
  }
  showPanel(activePanel);
  syncOpacities();
}

async function refreshScenarioList() {
  const {ok, data} = await api('/api/scenarios');
  const list = document.getElementById('scenario-list');
  list.replaceChildren(element('option', {value: '', text: ok && data.files.length ?
      'scenario file…' : 'no .toml files'}));
  if (ok) for (const f of data.files) list.append(element('option', {value: f.file, text: f.file}));
}

function note(text, bad = false) {
  const node = document.getElementById('scenario-note');
  node.textContent = text;
  node.classList.toggle('bad', bad);
}

export async function initSettings() {
  document.getElementById('scenario-load').addEventListener('click', async () => {
    const file = document.getElementById('scenario-list').value;
    if (!file) return note('Choose a scenario file first.', true);
    const {ok, data} = await api('/api/scenarios/load', {file});
    if (!ok) return note(data.error, true);
    renderPanels(data.panels);
    note(`Loaded ${file}.`);
  });
  document.getElementById('scenario-save').addEventListener('click', async () => {
    let file = document.getElementById('scenario-name').value.trim();
    if (file && !file.endsWith('.toml')) file += '.toml';
    if (!file) return note('Name the file to save, e.g. my-scenario.toml.', true);
    const {ok, data} = await api('/api/scenarios/save', {file});
    if (!ok) return note(data.error, true);
    note(`Saved ${data.file}.`);
    refreshScenarioList();
  });
  const [{ok, data}] = await Promise.all([api('/api/settings'), refreshScenarioList()]);
  if (ok) renderPanels(data.panels);
}

// The colour map editor: a table of 9 rows by 18 columns, the intensity plot of the same
// data, and the 20 entries of the colour map. Every colour shown comes from the server,
// by the same rules as `vorel colour-map`: an edited cell is recoloured alone, a pattern
// recolours every cell, and a colour picked for an entry redraws the plot (the table's
// cells keep their colours until their next edit).
import {api, element} from './api.js';

const ROWS = 9;
const COLUMNS = 18;
const CELL = 22;  // pixels of one plot cell

function hex(rgb) {
  return `#${rgb.toString(16).padStart(6, '0')}`;
}

// Black or white, whichever reads better on the cell's colour.
function ink(rgb) {
  const light = ((rgb >> 16) & 255) * 3 + ((rgb >> 8) & 255) * 6 + (rgb & 255);
  return light > 1275 ? '#000' : '#fff';
}

// A cell's value as typed, without the last bits of binary rounding (0.93, not
// 0.9299999999999999).
function shown(value) {
  return String(Number(value.toPrecision(12)));
}

function note(text, bad = false) {
  const node = document.getElementById('colours-note');
  node.textContent = text;
  node.classList.toggle('bad', bad);
}

function cellInput(r, c) {
  return document.querySelector(`#colour-table input[data-row="${r + 1}"][data-column="${c + 1}"]`);
}

function paintCell(input, colour) {
  input.style.backgroundColor = hex(colour);
  input.style.color = ink(colour);
  input.dataset.colour = hex(colour);
}

// Row 0 at the bottom, as on a graph.
function drawPlot(state) {
  const canvas = document.getElementById('intensity-plot');
  const g = canvas.getContext('2d');
  const left = 24;
  const top = 6;
  g.fillStyle = '#fff';
  g.fillRect(0, 0, canvas.width, canvas.height);
  g.font = '10px system-ui, sans-serif';
  g.textBaseline = 'middle';
  for (let r = 0; r < ROWS; ++r) {
    const y = top + (ROWS - 1 - r) * CELL;
    for (let c = 0; c < COLUMNS; ++c) {
      g.fillStyle = hex(state.plotColours[r][c]);
      g.fillRect(left + c * CELL, y, CELL, CELL);
    }
    g.fillStyle = '#333';
    g.textAlign = 'right';
    g.fillText(String(r), left - 5, y + CELL / 2);
  }
  g.textAlign = 'center';
  for (let c = 0; c < COLUMNS; ++c)
    g.fillText(String(c), left + (c + 0.5) * CELL, top + ROWS * CELL + 9);
}

function showSwatches(state) {
  state.entries.forEach((entry, k) => {
    const swatch = document.querySelector(`#colour-swatches [data-entry="${k + 1}"]`);
    swatch.style.backgroundColor = hex(entry.color);
    swatch.dataset.colour = hex(entry.color);
    swatch.previousSibling.textContent = entry.label;
  });
}

// A whole new state: every cell, the plot and the swatches.
function showAll(state) {
  for (let r = 0; r < ROWS; ++r) {
    for (let c = 0; c < COLUMNS; ++c) {
      const input = cellInput(r, c);
      input.value = shown(state.grid[r][c]);
      paintCell(input, state.cellColours[r][c]);
    }
  }
  drawPlot(state);
  showSwatches(state);
}

async function editCell(input) {
  const row = Number(input.dataset.row);
  const column = Number(input.dataset.column);
  const {ok, data} = await api('/api/colours/cell', {row, column, value: input.value.trim()});
  input.classList.toggle('invalid', !ok);
  if (!ok) return note(data.error, true);
  note('');
  input.value = shown(data.grid[row - 1][column - 1]);
  paintCell(input, data.changed.colour);  // this cell alone
  drawPlot(data);
}

async function pickColour(picker) {
  const row = Number(picker.dataset.entry);
  picker.hidden = true;
  const {ok, data} = await api('/api/colours/entry', {row, colour: picker.value});
  if (!ok) return note(data.error, true);
  note('');
  showSwatches(data);
  drawPlot(data);
}

// Opens the picker over the swatch, preset to its colour; header cells open nothing.
function openPicker(swatch) {
  const picker = document.getElementById('colour-picker');
  picker.value = swatch.dataset.colour;
  picker.dataset.entry = swatch.dataset.entry;
  swatch.after(picker);
  picker.hidden = false;
  try {
    picker.showPicker();
  } catch (e) {
    picker.click();
  }
}

function buildTable() {
  const table = document.getElementById('colour-table');
  const head = element('tr', {}, element('th'));
  for (let c = 1; c <= COLUMNS; ++c) head.append(element('th', {text: String(c)}));
  const body = element('tbody');
  for (let r = 1; r <= ROWS; ++r) {
    const tr = element('tr', {}, element('th', {text: String(r)}));
    for (let c = 1; c <= COLUMNS; ++c) {
      const input = element('input', {type: 'text', inputmode: 'decimal', spellcheck: 'false',
        'aria-label': `row ${r}, column ${c}`, 'data-row': String(r), 'data-column': String(c)});
      input.addEventListener('change', () => editCell(input));
      tr.append(element('td', {}, input));
    }
    body.append(tr);
  }
  table.replaceChildren(element('thead', {}, head), body);
}

function buildSwatches() {
  const list = document.getElementById('colour-swatches');
  list.replaceChildren();
  for (let k = 1; k <= 20; ++k) {
    const swatch = element('button', {type: 'button', class: 'swatch', 'data-entry': String(k),
      'aria-label': `colour of entry ${k}`});
    swatch.addEventListener('click', () => openPicker(swatch));
    list.append(element('li', {}, element('span', {class: 'swatch-label'}), swatch));
  }
}

export async function initColours() {
  buildTable();
  buildSwatches();
  const picker = document.getElementById('colour-picker');
  picker.addEventListener('change', () => pickColour(picker));
  for (const button of document.querySelectorAll('[data-pattern]')) {
    button.addEventListener('click', async () => {
      const pattern = Number(button.dataset.pattern);
      const {ok, data} = await api('/api/colours/pattern', {pattern});
      if (!ok) return note(data.error, true);
      note('');
      showAll(data);
    });
  }
  const {ok, data} = await api('/api/colours');
  if (ok) showAll(data);
}

// The data directory's files with their sizes, each offered for download.
import {api, element, formatSize} from './api.js';

function link(file) {
  const a = element('a', {href: `/api/files/download?path=${encodeURIComponent(file)}`,
    download: file.split('/').pop(), text: file});
  return a;
}

export function showOutputs(outputs) {
  const holder = document.getElementById('last-outputs');
  holder.replaceChildren();
  if (!outputs.length) return;
  const list = element('ul', {class: 'outputs'});
  for (const o of outputs) list.append(element('li', {}, o.file ? link(o.file) : o.path));
  holder.append(element('h3', {text: 'Written by the last run'}), list);
}

export async function refreshFiles() {
  const {ok, data} = await api('/api/files');
  const body = document.getElementById('file-list');
  body.replaceChildren();
  if (!ok) return;
  for (const f of data.files) {
    const when = new Date(f.modified * 1000).toLocaleString();
    body.append(element('tr', {}, element('td', {}, link(f.file)),
        element('td', {class: 'size', text: formatSize(f.size)}), element('td', {text: when})));
  }
  if (!data.files.length)
    body.append(element('tr', {},
        element('td', {colspan: '3', class: 'note', text: 'No files yet.'})));
}

export function initFiles() {
  document.getElementById('files-refresh').addEventListener('click', refreshFiles);
  return refreshFiles();
}

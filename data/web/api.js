// Requests to the server. The access token travels in the cookie the first visit set.

export async function api(path, body) {
  const options = body === undefined ? {} : {
    method: 'POST',
    headers: {'Content-Type': 'application/json'},
    body: JSON.stringify(body),
  };
  const response = await fetch(path, options);
  let data = {};
  try {
    data = await response.json();
  } catch (e) {
    data = {error: `${response.status} ${response.statusText}`};
  }
  return {ok: response.ok, status: response.status, data};
}

// Shows a PNG response in `img` once it has loaded, and lets the image it replaces go.
export async function showImage(img, response) {
  const url = URL.createObjectURL(await response.blob());
  await new Promise((resolve) => {
    img.onload = resolve;
    img.onerror = resolve;
    img.src = url;
  });
  if (img.dataset.url) URL.revokeObjectURL(img.dataset.url);
  img.dataset.url = url;
}

export function formatSize(bytes) {
  const units = ['B', 'kB', 'MB', 'GB'];
  let value = bytes;
  let unit = 0;
  while (value >= 1000 && unit < units.length - 1) {
    value /= 1000;
    unit += 1;
  }
  return unit === 0 ? `${value} B` : `${value.toFixed(1)} ${units[unit]}`;
}

export function element(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attributes)) {
    if (key === 'class') node.className = value;
    else if (key === 'text') node.textContent = value;
    else node.setAttribute(key, value);
  }
  node.append(...children);
  return node;
}

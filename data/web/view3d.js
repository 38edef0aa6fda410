// The 3D view: the Earth and the ionosphere shell as the server's 40 x 40 parametric meshes
// (in km, Earth-fixed, z to the north pole), drawn with Debian's three.js, and the loaded
// constellation's satellites at the scenario time. The mouse turns the camera about the
// Earth and the wheel moves it nearer or farther. The meshes stop one step short of
// closing, as the view has always shown them.
import {api} from './api.js';

const THREE_URL = '/vendor/three/build/three.module.js';
const CONTROLS_URL = '/vendor/three/examples/jsm/controls/OrbitControls.js';
const BACKGROUND = 0x0b1420;
const EARTH_COLOUR = 0x2f6fb0;
const SHELL_COLOUR = 0x7fd4ff;
const SATELLITE_COLOUR = 0xffd54a;
const SATELLITE_RADIUS = 450;  // km: seen at orbit distance

let view = null;

function note(text) {
  document.getElementById('view3d-note').textContent = text;
}

// Triangles of the quads between neighbouring points; the last row and column are not
// joined back to the first.
function meshGeometry(THREE, mesh, steps) {
  const positions = new Float32Array(steps * steps * 3);
  for (let k = 0; k < steps * steps; ++k) {
    positions[3 * k] = mesh.x[k];
    positions[3 * k + 1] = mesh.y[k];
    positions[3 * k + 2] = mesh.z[k];
  }
  const index = [];
  for (let i = 0; i + 1 < steps; ++i) {
    for (let j = 0; j + 1 < steps; ++j) {
      const a = i * steps + j;
      const b = a + steps;
      index.push(a, b, a + 1, b, b + 1, a + 1);
    }
  }
  const geometry = new THREE.BufferGeometry();
  geometry.setAttribute('position', new THREE.BufferAttribute(positions, 3));
  geometry.setIndex(index);
  geometry.computeVertexNormals();
  return geometry;
}

function label(THREE, text) {
  const canvas = document.createElement('canvas');
  canvas.width = 64;
  canvas.height = 32;
  const g = canvas.getContext('2d');
  g.font = 'bold 22px system-ui, sans-serif';
  g.fillStyle = '#ffe9a6';
  g.textAlign = 'center';
  g.textBaseline = 'middle';
  g.fillText(text, 32, 16);
  const sprite = new THREE.Sprite(new THREE.SpriteMaterial(
      {map: new THREE.CanvasTexture(canvas), depthTest: false}));
  sprite.scale.set(3200, 1600, 1);
  return sprite;
}

function buildScene(THREE, scene, data) {
  const earth = new THREE.Mesh(meshGeometry(THREE, data.earth, data.steps),
      new THREE.MeshPhongMaterial({color: EARTH_COLOUR, shininess: 12, side: THREE.DoubleSide}));
  const grid = new THREE.Mesh(earth.geometry, new THREE.MeshBasicMaterial(
      {color: 0x9cc8f0, wireframe: true, transparent: true, opacity: 0.18}));
  const shell = new THREE.Mesh(meshGeometry(THREE, data.ionosphere, data.steps),
      new THREE.MeshPhongMaterial({color: SHELL_COLOUR, transparent: true, opacity: 0.22,
        depthWrite: false, side: THREE.DoubleSide}));
  shell.renderOrder = 1;
  const satellites = new THREE.Group();
  const ball = new THREE.SphereBufferGeometry(SATELLITE_RADIUS, 12, 8);
  const material = new THREE.MeshBasicMaterial({color: SATELLITE_COLOUR});
  for (const s of data.satellites) {
    const mark = new THREE.Mesh(ball, material);
    mark.position.set(s.x, s.y, s.z);
    const tag = label(THREE, String(s.prn));
    tag.position.set(s.x * 1.07, s.y * 1.07, s.z * 1.07);
    satellites.add(mark, tag);
  }
  const group = new THREE.Group();
  group.name = 'constellation';
  group.add(earth, grid, shell, satellites);
  scene.add(group);
  return group;
}

async function loadThree() {
  try {
    const THREE = await import(THREE_URL);
    const {OrbitControls} = await import(CONTROLS_URL);
    return {THREE, OrbitControls};
  } catch (e) {
    return null;
  }
}

function webglAvailable() {
  const probe = document.createElement('canvas');
  return Boolean(probe.getContext('webgl2') || probe.getContext('webgl'));
}

function setUp(THREE, OrbitControls, canvas) {
  const renderer = new THREE.WebGLRenderer({canvas, antialias: true,
    preserveDrawingBuffer: true});  // the picture stays readable for a screenshot
  renderer.setPixelRatio(window.devicePixelRatio || 1);
  renderer.setSize(canvas.clientWidth, canvas.clientHeight, false);
  renderer.setClearColor(BACKGROUND);
  const scene = new THREE.Scene();
  const camera = new THREE.PerspectiveCamera(40, canvas.clientWidth / canvas.clientHeight,
      1000, 400000);
  camera.up.set(0, 0, 1);
  scene.add(new THREE.AmbientLight(0xffffff, 0.45));
  const sun = new THREE.DirectionalLight(0xffffff, 0.85);
  sun.position.set(1, 0.4, 0.5);
  scene.add(sun);
  const controls = new OrbitControls(camera, canvas);
  controls.enablePan = false;
  controls.minDistance = 9000;
  controls.maxDistance = 200000;
  const draw = () => renderer.render(scene, camera);
  controls.addEventListener('change', draw);
  return {THREE, renderer, scene, camera, controls, draw, group: null, placed: false};
}

// The first picture takes in the whole constellation, or the shell when there is none;
// after that the camera stays where the user turned it.
function placeCamera(satellites) {
  let reach = 2 * 6878;
  for (const s of satellites) reach = Math.max(reach, Math.hypot(s.x, s.y, s.z));
  const distance = 1.15 * reach / Math.tan((view.camera.fov / 2) * Math.PI / 180);
  view.camera.position.set(0.75, 0.45, 0.48).normalize().multiplyScalar(distance);
  view.controls.update();
  view.placed = true;
}

export async function refreshView3d() {
  if (!view) return;
  const {ok, status, data} = await api('/api/scene');
  if (!ok) {
    if (status !== 409) note(data.error);
    return;
  }
  if (view.group) view.scene.remove(view.group);
  view.group = buildScene(view.THREE, view.scene, data);
  if (!view.placed || (data.satellites.length && !view.satellitesPlaced)) {
    placeCamera(data.satellites);
    view.satellitesPlaced = data.satellites.length > 0;
  }
  const canvas = view.renderer.domElement;
  canvas.dataset.satellites = String(data.satellites.length);
  note(data.satellites.length ? `${data.satellites.length} satellites at the scenario time` :
      'no orbits loaded: the Earth and the ionosphere shell only');
  view.draw();
  canvas.dataset.drawn = 'true';
}

export async function initView3d() {
  const canvas = document.getElementById('view3d');
  const three = await loadThree();
  if (!three) {
    note('three.js is not installed: the 3D view needs the Debian package libjs-three.');
    return;
  }
  if (!webglAvailable()) {
    note('This browser cannot draw WebGL, which the 3D view needs.');
    return;
  }
  view = setUp(three.THREE, three.OrbitControls, canvas);
  document.getElementById('view3d-redraw').addEventListener('click', refreshView3d);
  await refreshView3d();
}

// SPDX-License-Identifier: MIT
// The dashboard: it follows quor-web's stream of events (/api/events) and
// sends each change the user makes as one JSON request. Every open page
// gets the same events, so a change made in one shows in all of them.
'use strict';

const token = new URLSearchParams(location.search).get('token') || '';
const $ = (id) => document.getElementById(id);

// What the page knows; the events keep it current.
const view = {
  model: null,          // {name, places, transitions, parameters, initialParameters, interval}
  status: {},
  values: {parameters: [], marking: []},
  times: [],            // the output points' times
  rows: [],             // a row of values per place
  hidden: new Set(),    // places whose curves are not shown
  simulators: [],       // [{category, simulators: [...]}]
  settingsFor: '',
};

// ---- requests ------------------------------------------------------------

// The latest request of each control: an older answer does not overwrite
// what a newer one said.
const latest = {};

async function post(path, body, control) {
  const refusal = control ? $('refusal-' + control) : null;
  if (refusal) refusal.textContent = '';
  const serial = latest[control] = (latest[control] || 0) + 1;
  let answer;
  try {
    const response = await fetch(path, {
      method: 'POST',
      headers: {'Content-Type': 'application/json', 'X-Quor-Token': token},
      body: JSON.stringify(body),
    });
    answer = await response.json().catch(() => ({error: response.statusText}));
    if (!response.ok) answer.error = answer.error || response.statusText;
  } catch (error) {
    answer = {error: 'quor-web cannot be reached (' + error.message + ')'};
  }
  const problems = answer.error ? [answer.error] : (answer.refusals || []);
  if (refusal && latest[control] === serial) refusal.textContent = problems.join('\n');
  return answer;
}

async function get(path) {
  const response = await fetch(path);
  const answer = await response.json().catch(() => ({error: response.statusText}));
  if (!response.ok) answer.error = answer.error || response.statusText;
  return answer;
}

// ---- the chart -----------------------------------------------------------

const palette = ['#1f77b4', '#d62728', '#2ca02c', '#ff7f0e', '#9467bd', '#8c564b',
                 '#e377c2', '#7f7f7f', '#bcbd22', '#17becf'];

// A white background, so that the PNG is not transparent.
const whiteBackground = {
  id: 'whiteBackground',
  beforeDraw(chart) {
    const context = chart.ctx;
    context.save();
    context.fillStyle = '#fff';
    context.fillRect(0, 0, chart.width, chart.height);
    context.restore();
  },
};

const chart = new Chart($('chart'), {
  type: 'line',
  data: {labels: [], datasets: []},
  options: {
    animation: false,
    responsive: true,
    maintainAspectRatio: false,
    normalized: true,
    elements: {point: {radius: 0}, line: {borderWidth: 2, tension: 0}},
    interaction: {mode: 'index', intersect: false},
    scales: {
      x: {type: 'linear', title: {display: true, text: 'time'}},
      y: {title: {display: true, text: 'marking'}, beginAtZero: true},
    },
    plugins: {legend: {position: 'top'}},
  },
  plugins: [whiteBackground],
});

let redrawPending = false;
function redraw() {
  if (redrawPending) return;
  redrawPending = true;
  requestAnimationFrame(() => {
    redrawPending = false;
    chart.update('none');
  });
}

function buildChart() {
  const places = view.model ? view.model.places : [];
  chart.data.datasets = places.map((place, i) => ({
    label: place,
    data: [],
    borderColor: palette[i % palette.length],
    backgroundColor: palette[i % palette.length],
    hidden: view.hidden.has(place),
  }));
  fillChart(0);
}

// Puts the points from index `from` on into the chart's data.
function fillChart(from) {
  chart.data.datasets.forEach((dataset, i) => {
    const row = view.rows[i] || [];
    dataset.data.length = Math.min(dataset.data.length, from);
    for (let c = dataset.data.length; c < row.length; ++c) dataset.data.push({x: view.times[c], y: row[c]});
  });
  redraw();
}

function addPoints(points) {
  const from = points.from;
  view.times.length = Math.min(view.times.length, from);
  points.t.forEach((t, k) => { view.times[from + k] = t; });
  points.rows.forEach((row, i) => {
    view.rows[i] = view.rows[i] || [];
    view.rows[i].length = Math.min(view.rows[i].length, from);
    row.forEach((value, k) => { view.rows[i][from + k] = value; });
  });
  fillChart(from);
}

function clearPoints() {
  view.times = [];
  view.rows = [];
  fillChart(0);
}

function showPlaces() {
  const box = $('places');
  box.textContent = '';
  (view.model ? view.model.places : []).forEach((place, i) => {
    const label = document.createElement('label');
    const tick = document.createElement('input');
    tick.type = 'checkbox';
    tick.checked = !view.hidden.has(place);
    tick.dataset.place = place;
    tick.addEventListener('change', () => {
      if (tick.checked) view.hidden.delete(place); else view.hidden.add(place);
      chart.data.datasets[i].hidden = !tick.checked;
      redraw();
    });
    label.append(tick, ' ' + place);
    box.append(label);
  });
}

// ---- the model's values --------------------------------------------------

function number(value) {
  return Number.isFinite(value) ? +value.toPrecision(6) : '';
}

// A bound as a short text: 1e-20, 0.5, 1e+9.
function short(value) {
  return Math.abs(value) >= 1e5 || (value !== 0 && Math.abs(value) < 1e-3)
    ? value.toExponential() : String(value);
}

function showModel() {
  const model = view.model;
  $('model-info').textContent = model
    ? `${model.name}: ${model.places.length} places, ${model.transitions.length} transitions, ` +
      `${model.parameters.length} parameters`
    : 'no model attached';
  $('plot-title').textContent = model ? model.name : 'Marking over time';
  if (model && model.interval) {
    $('start').value = model.interval[0];
    $('end').value = model.interval[1];
    $('step').value = model.interval[2];
  }
  const parameters = $('parameters');
  parameters.textContent = '';
  (model ? model.parameters : []).forEach((name, i) => {
    const initial = model.initialParameters[i] || 0;
    const top = initial > 0 ? initial * 4 : 1;
    const slider = document.createElement('input');
    slider.type = 'range';
    slider.min = 0;
    slider.max = top;
    slider.step = top / 200;
    slider.id = 'slider-' + name;
    const field = valueRow(parameters, name, 'parameter-' + name, slider);
    slider.addEventListener('input', () => { field.value = slider.value; });
    slider.addEventListener('change', () => setParameter(name, +slider.value));
    field.addEventListener('change', () => setParameter(name, +field.value));
  });
  const marking = $('marking');
  marking.textContent = '';
  (model ? model.places : []).forEach((place) => {
    const field = valueRow(marking, place, 'marking-' + place);
    field.addEventListener('change', () =>
      post('api/marking', {place, value: +field.value}, 'marking-' + place));
  });
  showPlaces();
  buildChart();
  showValues();
}

// A row of a value table: the name, an optional slider, a number field
// (returned) and the place for the control's refusals.
function valueRow(table, name, control, slider) {
  const row = table.insertRow();
  const nameCell = row.insertCell();
  nameCell.className = 'name';
  nameCell.textContent = name;
  const field = document.createElement('input');
  field.type = 'number';
  field.step = 'any';
  field.min = 0;
  field.id = control;
  if (slider) row.insertCell().append(slider);
  row.insertCell().append(field);
  const refusal = row.insertCell();
  refusal.className = 'refusal';
  refusal.id = 'refusal-' + control;
  return field;
}

async function setParameter(name, value) {
  await post('api/parameter', {name, value}, 'parameter-' + name);
}

// A field the user is editing is left alone.
function setField(element, value) {
  if (element && document.activeElement !== element) element.value = number(value);
}

function showValues() {
  if (!view.model) return;
  view.model.parameters.forEach((name, i) => {
    const value = view.values.parameters[i];
    if (value === undefined) return;
    const slider = $('slider-' + name);
    if (slider && value > +slider.max) slider.max = value * 2;
    setField(slider, value);
    setField($('parameter-' + name), value);
  });
  view.model.places.forEach((place, i) => setField($('marking-' + place), view.values.marking[i]));
}

// ---- state ---------------------------------------------------------------

function showStatus() {
  const status = view.status;
  const badge = $('connection');
  badge.textContent = status.connected ? 'connected' : (status.connection || 'not connected');
  badge.title = status.connection || '';
  badge.className = 'badge ' + (status.connected ? 'ok' : 'lost');
  $('state').textContent = view.model ? status.stateName : '–';
  $('progress').value = status.progress || 0;
  $('progress-text').textContent = Math.round(status.progress || 0) + ' %';
  setField($('speed'), status.speed);
  const chosen = status.chosenCategory + '/' + status.chosenSimulator;
  const select = $('simulator');
  if (document.activeElement !== select && [...select.options].some((o) => o.value === chosen)) {
    if (select.value !== chosen) {
      select.value = chosen;
      loadSettings();
    }
  }
}

function showSimulators() {
  const select = $('simulator');
  const before = select.value;
  select.textContent = '';
  view.simulators.forEach((category) => category.simulators.forEach((name) => {
    const option = document.createElement('option');
    option.value = category.category + '/' + name;
    option.textContent = `${name} (${category.category})`;
    select.append(option);
  }));
  if ([...select.options].some((o) => o.value === before)) select.value = before;
  showStatus();
  loadSettings();
}

function chosenSimulator() {
  const value = $('simulator').value || '';
  const slash = value.indexOf('/');
  return {category: value.slice(0, slash), simulator: value.slice(slash + 1)};
}

async function loadSettings() {
  const {simulator} = chosenSimulator();
  if (!simulator || !view.model) return;
  view.settingsFor = simulator;
  $('settings-name').textContent = simulator;
  const answer = await get('api/settings?simulator=' + encodeURIComponent(simulator));
  const table = $('settings');
  table.textContent = '';
  if (answer.error) {
    $('refusal-settings').textContent = answer.error;
    return;
  }
  answer.settings.forEach((setting) => {
    const row = table.insertRow();
    const nameCell = row.insertCell();
    nameCell.className = 'name';
    nameCell.textContent = setting.name;
    nameCell.title = setting.caption;
    let field;
    if (setting.choices.length) {
      field = document.createElement('select');
      setting.choices.forEach((choice) => {
        const option = document.createElement('option');
        option.value = option.textContent = choice;
        field.append(option);
      });
    } else {
      field = document.createElement('input');
      field.type = 'text';
    }
    field.value = setting.value;
    field.dataset.setting = setting.name;
    field.dataset.original = setting.value;
    field.id = 'setting-' + setting.name;
    row.insertCell().append(field);
    const range = row.insertCell();
    range.className = 'range';
    if (setting.min !== undefined && setting.max !== undefined && setting.min < setting.max)
      range.textContent = `${short(setting.min)} … ${short(setting.max)}`;
  });
}

async function applySettings() {
  const values = {};
  document.querySelectorAll('#settings [data-setting]').forEach((field) => {
    if (field.value !== field.dataset.original) {
      const asNumber = Number(field.value);
      values[field.dataset.setting] = field.value.trim() !== '' && Number.isFinite(asNumber) ? asNumber : field.value;
    }
  });
  if (!Object.keys(values).length) {
    $('refusal-settings').textContent = 'nothing changed';
    return;
  }
  await post('api/settings', {simulator: view.settingsFor, values}, 'settings');
  loadSettings();
}

// ---- messages ------------------------------------------------------------

function addMessage(message) {
  const log = $('log');
  const item = document.createElement('li');
  item.className = message.level;
  const time = new Date().toLocaleTimeString();
  item.textContent = `${time} ${message.level}: ${message.text}`;
  log.append(item);
  while (log.children.length > 200) log.firstChild.remove();
  log.scrollTop = log.scrollHeight;
}

// ---- events --------------------------------------------------------------

async function snapshot(state) {
  $('server').textContent = 'server ' + state.server;
  const attachedBefore = view.model && view.model.name;
  view.model = state.model;
  view.status = state.status;
  view.values = state.values;
  view.times = [];
  view.rows = [];
  $('log').textContent = '';
  state.messages.forEach(addMessage);
  if (!state.model || state.model.name !== attachedBefore || !view.simulators.length) {
    showModel();
    if (state.model) {
      const answer = await get('api/model');
      view.simulators = answer.simulators || [];
      showSimulators();
    }
  } else {
    buildChart();
    showValues();
  }
  addPoints(state.points);
  showStatus();
  listModels();
}

function handle(event) {
  switch (event.type) {
    case 'snapshot': snapshot(event.state); break;
    case 'status': view.status = event.status; showStatus(); break;
    case 'values': view.values = event.values; showValues(); break;
    case 'points': addPoints(event.points); break;
    case 'run': clearPoints(); break;
    case 'message': addMessage(event.message); break;
    case 'settings': if (event.simulator === view.settingsFor) loadSettings(); break;
    case 'connection':
      view.status.connected = event.connected;
      view.status.connection = event.message;
      showStatus();
      break;
  }
}

function follow() {
  const stream = new EventSource('api/events');
  stream.onmessage = (message) => handle(JSON.parse(message.data));
  stream.onopen = () => { $('connection').classList.remove('gone'); };
  stream.onerror = () => {
    const badge = $('connection');
    badge.textContent = 'quor-web cannot be reached; trying again';
    badge.className = 'badge lost';
  };
}

async function listModels() {
  const answer = await get('api/models');
  const select = $('model-select');
  const before = select.value;
  if (answer.error) return;
  select.textContent = '';
  answer.models.forEach((name) => {
    const option = document.createElement('option');
    option.value = option.textContent = name;
    select.append(option);
  });
  select.value = answer.attached || before || (answer.models[0] || '');
}

// ---- controls ------------------------------------------------------------

function command(name) {
  const body = {command: name};
  if (name === 'start' || name === 'restart') {
    body.simulator = chosenSimulator().simulator || 'continuous';
    body.start = +$('start').value;
    body.end = +$('end').value;
    body.step = +$('step').value;
  }
  return post('api/command', body, 'command');
}

function downloadPng() {
  const link = document.createElement('a');
  link.href = chart.toBase64Image('image/png', 1);
  link.download = (view.model ? view.model.name : 'plot') + '.png';
  document.body.append(link);
  link.click();
  link.remove();
}

$('btn-models').addEventListener('click', listModels);
$('btn-attach').addEventListener('click', () => post('api/attach', {model: $('model-select').value}, 'attach'));
['start', 'pause', 'resume', 'stop', 'restart'].forEach((name) =>
  $('btn-' + name).addEventListener('click', () => command(name)));
$('speed').addEventListener('change', () => post('api/speed', {speed: +$('speed').value}, 'speed'));
$('simulator').addEventListener('change', () => {
  post('api/simulator', chosenSimulator(), 'simulator');
  loadSettings();
});
$('btn-reset-parameters').addEventListener('click', () =>
  post('api/reset', {what: 'parameters'}, 'reset-parameters'));
$('btn-reset-marking').addEventListener('click', () =>
  post('api/reset', {what: 'marking'}, 'reset-marking'));
$('btn-settings').addEventListener('click', applySettings);
$('btn-png').addEventListener('click', downloadPng);

// For scripts and tests: what the chart shows.
window.quorWeb = {
  chart,
  view,
  pointCount: () => (chart.data.datasets.length ? chart.data.datasets[0].data.length : 0),
  series: (place) => {
    const dataset = chart.data.datasets.find((d) => d.label === place);
    return dataset ? dataset.data.map((p) => p.y) : [];
  },
};

follow();

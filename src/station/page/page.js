'use strict';
// The station's page: its state asked for several times a second, everything from outside
// put in as text, never as markup.
const texts = {
  en: {
    station: 'Station', since: 'running since', package: 'firmware', offline: 'The station does not answer.',
    flashed: 'flashed', recovered: 'recovered', current: 'current', failed: 'failed', stopped: 'stopped',
    skipped: 'skipped', yield: 'yield today', lastHour: 'units in the last hour', recent: 'Last units',
    searchLabel: 'Serial', search: 'Search', csv: 'History as CSV', waiting: 'waiting', flashing: 'flashing',
    serial: 'Serial', file: 'file {0} of {1}', left: '{0} left', time: 'Time', port: 'Port', before: 'Before',
    after: 'After', outcome: 'Outcome', seconds: 's', signed: 'signature checked', unsigned: 'no signature checked',
    centralUp: 'central record reached', centralDown: 'central record not reached', outbox: '{0} records waiting', pending: 'running', interrupted: 'interrupted', unrecorded: 'not recorded',
    noCentral: 'no central record', found: '{0} records of serial {1}', foundOne: 'One record of serial {1}', none: 'No record of serial {0}',
    today: 'Today', error: 'error',
  },
  de: {
    station: 'Station', since: 'läuft seit', package: 'Firmware', offline: 'Die Station antwortet nicht.',
    flashed: 'geflasht', recovered: 'wiederhergestellt', current: 'aktuell', failed: 'fehlgeschlagen',
    stopped: 'abgebrochen', skipped: 'übersprungen', yield: 'Ausbeute heute', lastHour: 'Geräte in der letzten Stunde',
    recent: 'Letzte Geräte', searchLabel: 'Seriennummer', search: 'Suchen', csv: 'Verlauf als CSV',
    waiting: 'wartet', flashing: 'wird geflasht', serial: 'Seriennummer', file: 'Datei {0} von {1}',
    left: 'noch {0}', time: 'Zeit', port: 'Port', before: 'Vorher', after: 'Nachher', outcome: 'Ergebnis',
    seconds: 's', signed: 'Signatur geprüft', unsigned: 'keine Signatur geprüft',
    centralUp: 'zentrale Aufzeichnung erreicht', centralDown: 'zentrale Aufzeichnung nicht erreicht',
    outbox: '{0} Einträge warten', pending: 'läuft', interrupted: 'unterbrochen', unrecorded: 'nicht aufgezeichnet', noCentral: 'keine zentrale Aufzeichnung',
    found: '{0} Einträge zur Seriennummer {1}', foundOne: 'Ein Eintrag zur Seriennummer {1}', none: 'Kein Eintrag zur Seriennummer {0}', today: 'Heute',
    error: 'Fehler',
  },
};
const language = document.documentElement.lang === 'de' ? 'de' : 'en';
const t = (key, ...values) => (texts[language][key] || key).replace(/\{(\d)\}/g, (_, i) => String(values[i]));

function element(tag, text, className) {
  const node = document.createElement(tag);
  if (text !== undefined && text !== null) node.textContent = String(text);
  if (className) node.className = className;
  return node;
}

function localTime(iso) {
  if (!iso) return '';
  const when = new Date(iso);
  return isNaN(when) ? iso : when.toLocaleString(language === 'de' ? 'de-DE' : 'en-GB');
}

function duration(seconds) {
  const s = Math.max(0, Math.round(seconds));
  return Math.floor(s / 60) + ':' + String(s % 60).padStart(2, '0');
}

function tile(port) {
  const box = element('article', null, 'tile ' + (port.state === 'flashing' ? 'flashing' : port.state === 'done' ? port.outcome : 'waiting'));
  box.dataset.port = port.port;
  box.dataset.state = port.state;
  box.appendChild(element('h3', t('port') + ' ' + port.port));
  if (port.state === 'flashing') {
    box.appendChild(element('p', t('flashing'), 'status'));
    box.appendChild(element('p', t('serial') + ' ' + (port.serial || '-'), 'serial'));
    if (port.number > 0) box.appendChild(element('p', t('file', port.number, port.total) + ': ' + (port.file || ''), 'file'));
    const bar = element('div', null, 'bar');
    const fill = element('div');
    fill.style.width = Math.min(100, Math.max(0, port.percent)) + '%';
    bar.appendChild(fill);
    box.appendChild(bar);
    box.appendChild(element('p', port.percent + ' %' + (port.remaining !== null && port.remaining !== undefined
      ? ' · ' + t('left', duration(port.remaining)) : ''), 'percent'));
  } else if (port.state === 'done') {
    box.appendChild(element('p', t(port.outcome), 'status'));
    box.appendChild(element('p', t('serial') + ' ' + (port.serial || '-'), 'serial'));
    box.appendChild(element('p', localTime(port.ended) + (port.after ? ' · ' + port.after : ''), 'when'));
  } else {
    box.appendChild(element('p', t('waiting'), 'status'));
  }
  if (port.error) box.appendChild(element('p', t('error') + ': ' + port.error, 'error'));
  return box;
}

function fillTable(table, records) {
  const head = table.tHead;
  if (!head.rows.length) {
    const row = head.insertRow();
    for (const key of ['time', 'port', 'serial', 'before', 'after', 'outcome', 'seconds'])
      row.appendChild(element('th', key === 'seconds' ? 's' : t(key)));
  }
  const body = element('tbody');
  for (const record of records) {
    const row = body.insertRow();
    row.dataset.id = record.id || '';
    for (const value of [localTime(record.started), record.port, record.serial, record.before, record.after])
      row.appendChild(element('td', value || ''));
    row.appendChild(element('td', t(record.outcome), record.outcome));
    row.appendChild(element('td', record.seconds.toFixed(1)));
  }
  table.replaceChild(body, table.tBodies[0]);
}

let lastRecent = '';
function show(state) {
  document.getElementById('station').textContent = state.station;
  document.getElementById('since').textContent = localTime(state.since);
  const pkg = state.package;
  document.getElementById('package').textContent = (pkg.version || '-') + ' (' + pkg.files.join(', ') + '; '
    + t(pkg.signed ? 'signed' : 'unsigned') + ')';
  const central = document.getElementById('central');
  if (!state.central) central.textContent = t('noCentral');
  else central.textContent = t(state.central.up ? 'centralUp' : 'centralDown')
    + (state.central.pending ? ' · ' + t('outbox', state.central.pending) : '');
  central.className = state.central && !state.central.up ? 'down' : '';
  const tiles = element('section');
  tiles.id = 'tiles';
  for (const port of state.ports) tiles.appendChild(tile(port));
  document.getElementById('tiles').replaceWith(tiles);
  for (const key of ['flashed', 'recovered', 'current', 'failed', 'stopped', 'skipped'])
    document.getElementById('count-' + key).textContent = state.today[key];
  document.getElementById('count-failed').parentNode.classList.toggle('bad', state.today.failed > 0);
  document.getElementById('yield').textContent = state.yield === null ? '-' : (state.yield * 100).toFixed(1) + ' %';
  document.getElementById('last-hour').textContent = state.lastHour;
  const recent = JSON.stringify(state.recent);
  if (recent !== lastRecent) {
    lastRecent = recent;
    fillTable(document.getElementById('recent'), state.recent);
  }
}

async function poll() {
  try {
    const reply = await fetch('/api/state', { cache: 'no-store' });
    if (!reply.ok) throw new Error(reply.status);
    show(await reply.json());
    document.getElementById('offline').hidden = true;
  } catch (e) {
    document.getElementById('offline').hidden = false;
  }
  setTimeout(poll, 250);
}

async function search(event) {
  event.preventDefault();
  const serial = document.getElementById('search-serial').value.trim();
  const note = document.getElementById('search-note');
  const table = document.getElementById('search-results');
  if (!serial) {
    note.hidden = true;
    table.hidden = true;
    return;
  }
  const reply = await fetch('/api/history?serial=' + encodeURIComponent(serial), { cache: 'no-store' });
  const records = reply.ok ? await reply.json() : [];
  note.hidden = false;
  note.textContent = records.length ? t(records.length === 1 ? 'foundOne' : 'found', records.length, serial)
    : t('none', serial);
  table.hidden = records.length === 0;
  fillTable(table, records);
}

document.documentElement.lang = language;
for (const node of document.querySelectorAll('[data-text]')) node.textContent = t(node.dataset.text);
document.title = 'morvanta-station';
document.getElementById('search').addEventListener('submit', search);
poll();

// Cardholders from a CSV file: every line is checked as the form checks it, the good ones are
// added through the API a few at a time under a progress bar, and the lines that failed are
// reported with why (the check's message, or the API's).
//
//   name,card,facility,pin,doors,valid_from,valid_until,enabled
//   Ada Lovelace,1001,,1234,front|back@Office hours,2025-01-01T00:00,,yes
//
// The first line names the columns, in any order; only name and card are required. card may
// hold several cards as "1001|1002"; doors names doors of the site, each with its schedule after
// '@'. A file written with ';' between fields is read as well.

import { api, app, clear, h, openDialog, plural } from './common.js';
import { apiProblem, checkHolder } from './holder.js';

const COLUMNS = ['name', 'card', 'facility', 'pin', 'doors', 'valid_from', 'valid_until', 'enabled'];
const AT_ONCE = 4;

// Records of a CSV text: [{line, fields}], `line` the record's first line in the file.
export function parseCsv(text) {
  const firstLine = text.slice(0, text.indexOf('\n') + 1 || text.length);
  const sep = !firstLine.includes(',') && firstLine.includes(';') ? ';' : ',';
  const out = [];
  let fields = [];
  let field = '';
  let quoted = false;
  let line = 1;
  let start = 1;
  let any = false;
  for (let i = 0; i < text.length; i++) {
    const c = text[i];
    if (quoted) {
      if (c === '"' && text[i + 1] === '"') { field += '"'; i++; } else if (c === '"') quoted = false; else {
        if (c === '\n') line++;
        field += c;
      }
      continue;
    }
    if (c === '"' && field === '') { quoted = true; any = true; } else if (c === sep) { fields.push(field); field = ''; any = true; } else if (c === '\n' || c === '\r') {
      if (c === '\r' && text[i + 1] === '\n') i++;
      fields.push(field);
      if (any || field !== '') out.push({ line: start, fields });
      fields = [];
      field = '';
      any = false;
      line++;
      start = line;
    } else { field += c; any = true; }
  }
  fields.push(field);
  if (any || field !== '') out.push({ line: start, fields });
  return out;
}

// The cardholder of a line, or the line's problem: {doc} or {field, message}.
export function lineToHolder(columns, fields, schedules) {
  const get = (k) => {
    const i = columns.indexOf(k);
    return i >= 0 && i < fields.length ? fields[i].trim() : '';
  };
  if (fields.length > columns.length && fields.slice(columns.length).some((f) => f.trim())) {
    return { field: 'line', message: `${fields.length} fields where the header names ${columns.length}.` };
  }
  const doc = { name: get('name') };
  const cards = get('card');
  if (!cards) return { field: 'card', message: 'A card number is required.' };
  const facility = get('facility');
  doc.cards = cards.split('|').map((n) => (facility ? { number: n.trim(), facility } : { number: n.trim() }));
  if (get('pin')) doc.pin = get('pin');
  if (get('valid_from')) doc.valid_from = get('valid_from');
  if (get('valid_until')) doc.valid_until = get('valid_until');
  const enabled = get('enabled').toLowerCase();
  if (enabled && !['yes', 'no', 'true', 'false', '1', '0'].includes(enabled)) {
    return { field: 'enabled', message: 'yes or no.' };
  }
  doc.enabled = !['no', 'false', '0'].includes(enabled);
  doc.access = get('doors') ? get('doors').split('|').filter((d) => d.trim()).map((d) => {
    const [door, schedule] = d.split('@').map((x) => x.trim());
    return schedule ? { door, schedule } : { door };
  }) : [];
  const problems = checkHolder(doc, app.site, schedules);
  if (problems.length) return problems[0];
  doc.cards = doc.cards.map((c) => (c.facility !== undefined ? { number: Number(c.number), facility: Number(c.facility) } : { number: Number(c.number) }));
  return { doc };
}

// The field names of the API and the checks, as the file's columns say them.
function columnOf(field) {
  const m = /^([a-z_]+)(?:\[(\d+)\])?(?:\.([a-z_]+))?/.exec(field || '');
  if (!m) return field || '';
  if (m[1] === 'cards') return m[3] === 'facility' ? 'facility' : 'card';
  if (m[1] === 'access') return 'doors';
  return m[1];
}

export function importDialog({ schedules, done }) {
  let lines = [];      // [{line, name, doc} | {line, name, field, message}]
  let stopped = false;
  let running = false;

  const file = h('input', { type: 'file', id: 'csv-file', accept: '.csv,text/csv,text/plain' });
  const drop = h('label', { class: 'drop', for: 'csv-file' },
    h('strong', {}, 'Choose a CSV file'), h('span', { class: 'muted' }, ' or drop it here'), file);
  const preview = h('div', { class: 'csv-preview', id: 'csv-preview' });
  const bar = h('div', { class: 'progress-bar' });
  const progress = h('div', { class: 'progress', id: 'csv-progress', role: 'progressbar', 'aria-valuemin': 0, 'aria-valuemax': 100, 'aria-valuenow': 0, hidden: true },
    h('div', { class: 'progress-track' }, bar), h('div', { class: 'progress-text' }));
  const result = h('div', { class: 'csv-report', id: 'csv-report' });
  const body = h('div', { class: 'csv-import' },
    h('p', {}, 'One cardholder per line. The first line names the columns: ',
      h('code', {}, COLUMNS.join(',')), '. Only name and card are required; several cards go as ',
      h('code', {}, '1001|1002'), ', doors as ', h('code', {}, 'front|back@Office hours'),
      ' (a door, with its schedule after @), times as ', h('code', {}, '2025-03-30T08:00'), ' in the site\'s time.'),
    drop, preview, progress, result);

  drop.addEventListener('dragover', (e) => { e.preventDefault(); drop.classList.add('drop-over'); });
  drop.addEventListener('dragleave', () => drop.classList.remove('drop-over'));
  drop.addEventListener('drop', (e) => {
    e.preventDefault();
    drop.classList.remove('drop-over');
    if (e.dataTransfer.files.length) read(e.dataTransfer.files[0]);
  });
  file.addEventListener('change', () => { if (file.files.length) read(file.files[0]); });

  let importButton = null;
  async function read(f) {
    clear(preview);
    clear(result);
    lines = [];
    if (f.size > 5 * 1024 * 1024) {
      preview.append(h('p', { class: 'field-error' }, 'The file is larger than 5 MB: split it.'));
      return;
    }
    const records = parseCsv(await f.text());
    if (!records.length) {
      preview.append(h('p', { class: 'field-error' }, 'The file is empty.'));
      return;
    }
    const columns = records[0].fields.map((c) => c.trim().toLowerCase().replace(/\s+/g, '_'));
    const unknown = columns.filter((c) => !COLUMNS.includes(c));
    const missing = ['name', 'card'].filter((c) => !columns.includes(c));
    if (unknown.length || missing.length) {
      preview.append(h('p', { class: 'field-error', id: 'csv-header-error' },
        unknown.length ? `Line 1 names columns the import doesn't know: ${unknown.join(', ')}. ` : '',
        missing.length ? `Line 1 lacks the column${missing.length > 1 ? 's' : ''} ${missing.join(' and ')}. ` : '',
        `The columns are ${COLUMNS.join(', ')}.`));
      return;
    }
    const seen = new Map();  // card -> line, within the file
    for (const r of records.slice(1)) {
      const name = r.fields[columns.indexOf('name')] || '';
      const got = lineToHolder(columns, r.fields, schedules);
      if (got.doc) {
        const clash = got.doc.cards.map((c) => `${c.facility ?? ''}/${c.number}`).find((k) => seen.has(k));
        if (clash) {
          lines.push({ line: r.line, name, field: 'card', message: `Card ${clash.split('/')[1]} is on line ${seen.get(clash)} already.` });
          continue;
        }
        for (const c of got.doc.cards) seen.set(`${c.facility ?? ''}/${c.number}`, r.line);
      }
      lines.push({ line: r.line, name, ...got });
    }
    const good = lines.filter((l) => l.doc).length;
    const bad = lines.length - good;
    preview.append(h('p', { id: 'csv-summary' }, h('strong', {}, `${f.name}: `), plural(lines.length, 'cardholder'),
      bad ? `; ${plural(bad, 'line')} with a problem found before sending (reported below with the rest).` : '; every line reads well.'));
    if (importButton) {
      importButton.disabled = good === 0;
      importButton.textContent = `Import ${plural(good, 'cardholder')}`;
    }
  }

  async function run() {
    const todo = lines.filter((l) => l.doc);
    if (!todo.length || running) return false;
    running = true;
    file.disabled = true;
    progress.hidden = false;
    let next = 0;
    let finished = 0;
    let added = 0;
    const failures = lines.filter((l) => !l.doc).map((l) => ({ ...l }));
    const show = () => {
      const pct = Math.round((100 * finished) / todo.length);
      bar.style.width = `${pct}%`;
      progress.setAttribute('aria-valuenow', String(pct));
      progress.querySelector('.progress-text').textContent = `${finished} of ${todo.length} sent · ${added} added · ${finished - added} failed`;
    };
    show();
    const worker = async () => {
      while (!stopped && next < todo.length) {
        const l = todo[next++];
        try {
          await api('POST', 'cardholders', l.doc);
          added++;
        } catch (e) {
          const p = apiProblem(e);
          failures.push({ line: l.line, name: l.name, field: p.field === '_form' ? '' : p.field, message: p.message });
          if (e.status === 401) stopped = true;
        }
        finished++;
        show();
      }
    };
    await Promise.all(Array.from({ length: AT_ONCE }, worker));
    running = false;
    failures.sort((a, b) => a.line - b.line);
    clear(result).append(
      h('h3', { id: 'csv-result' }, `${plural(added, 'cardholder')} added, ${plural(failures.length, 'line')} failed${stopped ? ' (stopped)' : ''}.`),
      failures.length ? h('table', { class: 'table compact', id: 'csv-failures' },
        h('thead', {}, h('tr', {}, h('th', {}, 'Line'), h('th', {}, 'Name'), h('th', {}, 'Column'), h('th', {}, 'Why'))),
        h('tbody', {}, failures.map((f) => h('tr', { 'data-line': f.line },
          h('td', {}, String(f.line)), h('td', {}, f.name || '—'), h('td', { class: 'mono' }, columnOf(f.field)), h('td', {}, f.message))))) : null);
    if (importButton) importButton.hidden = true;
    done();
    return false;
  }

  const d = openDialog({
    title: 'Import cardholders',
    body,
    wide: true,
    actions: [
      { label: 'Close', kind: 'secondary', id: 'close', onclick: () => { stopped = true; return true; } },
      { label: 'Import', kind: 'primary', id: 'import', onclick: () => run() },
    ],
    onclose: () => { stopped = true; },
  });
  importButton = d.box.querySelector('[data-action="import"]');
  importButton.disabled = true;
}

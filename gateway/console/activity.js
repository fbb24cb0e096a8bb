// Live activity: events, alarms, look-ups with their decisions, door reports and the rest, as the
// journal stores them, newest first. The filters (controller, door, type, text) apply to the live
// stream and to the journal alike: the list starts with the newest records that match, the
// stream adds to the top, and "Show older" searches back through the journal page by page.

import { api, app, clear, fmtFull, fmtTime, h, live, openDialog, refreshHolders } from './common.js';

const TYPES = [
  { id: 'event', label: 'Events', kinds: ['event'], on: true },
  { id: 'alarm', label: 'Alarms', kinds: ['alarm'], on: true },
  { id: 'lookup', label: 'Look-ups', kinds: ['lookup'], on: true },
  { id: 'door', label: 'Door reports', kinds: ['door'], on: true },
  { id: 'pin', label: 'PINs', kinds: ['pin'], on: true },
  { id: 'link', label: 'Connections', kinds: ['connect', 'disconnect'], on: true },
  { id: 'decision', label: 'Decisions', kinds: ['decision'], on: true },
  { id: 'audit', label: 'Operators', kinds: ['audit'], on: true },
  { id: 'heartbeat', label: 'Heartbeats', kinds: ['heartbeat'], on: false },
];
const PAGE = 100;
const KEEP = 1000;

export function typeOf(r) {
  return r.kind === 'alarm' && r.fields && r.fields.type === 'heartbeat' ? 'heartbeat' : r.kind;
}

export function doorOf(r) {
  const d = r.fields ? r.fields.door : undefined;
  if (d === undefined || d === null || d === '') return null;
  const n = Number(d);
  return Number.isInteger(n) ? n : null;
}

export function doorName(mac, n) {
  if (n === null || n === undefined) return '';
  const d = (app.site.doors || []).find((x) => x.controller === mac && x.door === n);
  return d ? d.name : `door ${n}`;
}

const LABELS = {
  event: 'Event', alarm: 'Alarm', heartbeat: 'Heartbeat', lookup: 'Look-up', door: 'Door report', pin: 'PIN',
  connect: 'Connected', disconnect: 'Disconnected', decision: 'Decision', audit: 'Operator',
};

let holdersAsked = 0;
function holderName(id) {
  if (!id) return '';
  const name = app.holders.get(id);
  if (!name && Date.now() - holdersAsked > 10000) {
    holdersAsked = Date.now();
    refreshHolders();
  }
  return name || `cardholder ${id}`;
}

// What a record says, in a line.
export function summary(r) {
  const f = r.fields || {};
  switch (typeOf(r)) {
    case 'event':
    case 'alarm':
      return f.description || r.raw;
    case 'heartbeat':
      return `Heartbeat, controller clock ${f.time ? f.time.replace('T', ' ') : '?'}`;
    case 'lookup': {
      const who = f.cardholder ? ` · ${holderName(f.cardholder)}` : '';
      return `Card ${f.card}${f.facility ? ` (facility ${f.facility})` : ''}: ${f.reason || r.decision || ''}${who}`;
    }
    case 'door':
      return `Card ${f.card}: the door ${f.result === 'granted' ? 'let them in' : 'stayed shut'}`;
    case 'pin':
      return `PIN of ${f.pin_length ?? '?'} digits${r.source ? ` (${r.source})` : ''}`;
    case 'connect':
      return 'The controller connected';
    case 'disconnect':
      return 'The controller went away';
    case 'decision':
      return `${r.raw}${f.card ? ` for card ${f.card}` : ''}`;
    case 'audit': {
      const what = f.export ? `${r.raw}${f.ok === false ? ` (${f.result || 'failed'})` : ''}` : r.raw;
      return `${what}${r.actor ? ` · by ${r.actor}` : ''}`;
    }
    default:
      return r.raw;
  }
}

export function decisionBadge(r) {
  const d = r.decision || (r.kind === 'door' && r.fields ? r.fields.result : '');
  if (!d || d === 'none') return null;
  const grant = d === 'grant' || d === 'granted';
  const pin = d === 'pin';
  return h('span', { class: `badge ${grant ? 'badge-grant' : pin ? 'badge-pin' : 'badge-deny'}` },
    grant ? 'Granted' : pin ? 'PIN asked' : 'Denied');
}

export function showRecord(r) {
  const f = r.fields || {};
  const rows = Object.keys(f).sort().map((k) => h('tr', {},
    h('th', {}, k), h('td', { class: 'mono' }, typeof f[k] === 'object' ? JSON.stringify(f[k]) : String(f[k]))));
  const facts = [
    ['Journal id', `#${r.id}`],
    ['Received', fmtFull(r.received_ms)],
    ['Kind', LABELS[typeOf(r)] || r.kind],
    ['Controller', r.mac || '—'],
  ];
  const door = doorOf(r);
  if (door !== null) facts.push(['Door', doorName(r.mac, door)]);
  if (r.decision) facts.push(['Decision', `${r.decision}${r.source ? ` (by ${r.source})` : ''}`]);
  if (typeof r.latency_ms === 'number') facts.push(['Decided in', `${r.latency_ms.toFixed(2)} ms`]);
  if (r.actor) facts.push(['By', r.actor]);
  openDialog({
    title: `${LABELS[typeOf(r)] || r.kind} #${r.id}`,
    wide: true,
    body: h('div', { class: 'record-detail' },
      h('dl', { class: 'facts' }, facts.map(([k, v]) => [h('dt', {}, k), h('dd', {}, v)])),
      h('h3', {}, 'Raw text'),
      h('pre', { class: 'raw', id: 'record-raw' }, r.raw || '(empty)'),
      h('h3', {}, 'Fields'),
      rows.length ? h('table', { class: 'table fields', id: 'record-fields' }, h('tbody', {}, rows))
        : h('p', { class: 'muted' }, 'The text is not in a format the gateway reads.')),
    actions: [{ label: 'Close', kind: 'secondary', onclick: () => true }],
  });
}

export default {
  mount(root) {
    const filters = { mac: '', door: '', text: '', types: new Set(TYPES.filter((t) => t.on).map((t) => t.id)) };
    let generation = 0;
    let loading = false;
    let held = [];      // live records that came while the list loads, or while paused
    let paused = false;
    let nextBefore = null;
    let count = 0;

    const macSelect = h('select', { id: 'filter-mac', 'aria-label': 'Controller', onchange: () => { filters.mac = macSelect.value; filters.door = ''; doorSelect.value = ''; reload(); } },
      h('option', { value: '' }, 'All controllers'));
    const doorSelect = h('select', { id: 'filter-door', 'aria-label': 'Door', onchange: () => { filters.door = doorSelect.value; reload(); } });
    const text = h('input', { id: 'filter-text', type: 'search', placeholder: 'Text in the record', 'aria-label': 'Text in the record', maxlength: 200 });
    let textTimer = null;
    text.addEventListener('input', () => {
      clearTimeout(textTimer);
      textTimer = setTimeout(() => { filters.text = text.value.trim(); reload(); }, 350);
    });
    const chips = h('div', { class: 'type-chips', role: 'group', 'aria-label': 'Types' }, TYPES.map((t) => {
      const box = h('input', { type: 'checkbox', value: t.id, checked: filters.types.has(t.id) });
      box.addEventListener('change', () => {
        if (box.checked) filters.types.add(t.id); else filters.types.delete(t.id);
        reload();
      });
      return h('label', { class: `type-chip type-${t.id}`, 'data-type': t.id }, box, h('span', {}, t.label));
    }));
    const pause = h('button', { type: 'button', class: 'secondary', id: 'pause-live', onclick: () => togglePause() }, 'Pause');
    const status = h('span', { class: 'muted small', id: 'activity-status' });
    const body = h('tbody', { id: 'activity-rows' });
    const table = h('table', { class: 'table table-cards activity' },
      h('thead', {}, h('tr', {}, h('th', {}, 'Time'), h('th', {}, 'Type'), h('th', {}, 'Controller'),
        h('th', {}, 'Door'), h('th', {}, 'What'), h('th', {}, 'Decision'))),
      body);
    const older = h('button', { type: 'button', class: 'secondary', id: 'older', onclick: () => loadOlder() }, 'Show older');
    const end = h('p', { class: 'muted small center', id: 'activity-end' });

    root.append(
      h('div', { class: 'page-head' },
        h('div', {}, h('h1', {}, 'Activity'),
          h('p', { class: 'muted' }, 'Everything the controllers report and the gateway decides, live. Click a line for its raw text.')),
        h('div', { class: 'head-actions' }, status, pause)),
      h('div', { class: 'panel filters' },
        h('div', { class: 'filter-row' }, macSelect, doorSelect, text), chips),
      h('div', { class: 'panel' }, table, h('div', { class: 'list-foot' }, older, end)));

    function fillSelects() {
      const macs = new Set((app.site.doors || []).map((d) => d.controller));
      api('GET', 'controllers').then((r) => {
        for (const c of r.controllers) macs.add(c.mac);
        for (const m of [...macs].sort()) {
          if (![...macSelect.options].some((o) => o.value === m)) macSelect.append(h('option', { value: m }, m));
        }
      }).catch(() => {});
      clear(doorSelect).append(h('option', { value: '' }, 'All doors'));
      for (const d of app.site.doors || []) {
        doorSelect.append(h('option', { value: `${d.controller}|${d.door}` }, `${d.name} (${d.controller} door ${d.door})`));
      }
    }

    function kinds() {
      const out = [];
      for (const t of TYPES) if (filters.types.has(t.id)) out.push(...t.kinds);
      return out;
    }

    function query(before) {
      const p = new URLSearchParams({ limit: String(PAGE), before: String(before) });
      const k = kinds();
      if (k.length < TYPES.reduce((n, t) => n + t.kinds.length, 0)) p.set('kind', k.join(','));
      let mac = filters.mac;
      if (filters.door) {
        const [m, d] = filters.door.split('|');
        mac = m;
        p.set('door', d);
      }
      if (mac) p.set('mac', mac);
      if (filters.text) p.set('text', filters.text);
      return `events/search?${p}`;
    }

    function matches(r) {
      const t = typeOf(r);
      const group = TYPES.find((x) => x.kinds.includes(t));
      if (group && !filters.types.has(group.id)) return false;
      if (filters.mac && r.mac !== filters.mac) return false;
      if (filters.door) {
        const [m, d] = filters.door.split('|');
        if (r.mac !== m || doorOf(r) !== Number(d)) return false;
      }
      if (filters.text && !(r.raw || '').includes(filters.text)) return false;
      return true;
    }

    function row(r) {
      const t = typeOf(r);
      const door = doorOf(r);
      return h('tr', { class: `rec rec-${t}`, 'data-id': r.id, 'data-kind': t, tabindex: 0,
        onclick: () => showRecord(r), onkeydown: (e) => { if (e.key === 'Enter') showRecord(r); } },
        h('td', { 'data-label': 'Time', class: 'nowrap', title: fmtFull(r.received_ms) }, fmtTime(r.received_ms)),
        h('td', { 'data-label': 'Type' }, h('span', { class: `kind kind-${t}` }, LABELS[t] || r.kind)),
        h('td', { 'data-label': 'Controller', class: 'mono' }, r.mac || '—'),
        h('td', { 'data-label': 'Door' }, door === null ? '—' : doorName(r.mac, door)),
        h('td', { 'data-label': 'What', class: 'what' }, summary(r)),
        h('td', { 'data-label': 'Decision' }, decisionBadge(r)));
    }

    function showCount() {
      status.textContent = paused && held.length ? `${held.length} new while paused` : `${count} shown`;
      end.textContent = nextBefore === null && !loading ? 'The start of the journal: nothing older is kept.' : '';
      older.hidden = nextBefore === null;
    }

    function addTop(r) {
      if (!matches(r)) return;
      body.prepend(row(r));
      count++;
      while (count > KEEP) {
        body.lastElementChild.remove();
        count--;
        nextBefore = Number(body.lastElementChild.dataset.id);
      }
    }

    async function reload() {
      const gen = ++generation;
      loading = true;
      held = [];
      clear(body);
      count = 0;
      nextBefore = live.lastId + 1;
      status.textContent = 'Loading…';
      await loadOlder(gen);
      if (gen !== generation) return;
      loading = false;
      if (!paused) { for (const r of held) addTop(r); held = []; }
      showCount();
    }

    // A page of older records; a search that found too few goes on a few times by itself, since
    // a rare filter may have nothing in the span one request reads.
    async function loadOlder(gen = generation) {
      let found = 0;
      older.disabled = true;
      try {
        for (let i = 0; i < 10 && nextBefore !== null && found < PAGE / 2; i++) {
          const r = await api('GET', query(nextBefore));
          if (gen !== generation) return;
          for (const rec of r.records) body.append(row(rec));
          count += r.records.length;
          found += r.records.length;
          nextBefore = r.next_before;
        }
      } catch (e) {
        status.textContent = e.message;
      } finally {
        older.disabled = false;
        if (gen === generation) showCount();
      }
    }

    function togglePause() {
      paused = !paused;
      pause.textContent = paused ? 'Resume' : 'Pause';
      pause.classList.toggle('primary', paused);
      if (!paused) {
        for (const r of held) addTop(r);
        held = [];
      }
      showCount();
    }

    const unsubscribe = live.subscribe((r) => {
      if (loading || paused) held.push(r); else { addTop(r); showCount(); }
    });
    fillSelects();
    reload();
    return () => { generation++; unsubscribe(); clearTimeout(textTimer); };
  },
};

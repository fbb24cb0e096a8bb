// Cardholders: the gateway's own table of people, their cards, the doors each may open (under
// which schedule, with a PIN or not) and their validity window. A card is also written into the
// databases of the controllers that serve the doors chosen for it, so that those doors decide
// alone while the gateway is away; a controller that is offline gets it when it connects.
// Search by card number or name; import many from a CSV file.

import { api, app, clear, clearFieldErrors, confirmDialog, h, openDialog, plural, refreshHolders, showFieldError, toast } from './common.js';
import { importDialog } from './csv.js';
import { apiProblem, checkHolder } from './holder.js';

const SHOWN = 200;

function windowText(c) {
  if (!c.valid_from && !c.valid_until) return 'Always';
  const f = (t) => t.replace('T', ' ').slice(0, 16);
  if (!c.valid_until) return `From ${f(c.valid_from)}`;
  if (!c.valid_from) return `Until ${f(c.valid_until)}`;
  return `${f(c.valid_from)} – ${f(c.valid_until)}`;
}

function controllersOf(access) {
  const macs = new Set();
  for (const a of access) {
    const d = (app.site.doors || []).find((x) => x.name === a.door);
    if (d) macs.add(d.controller);
  }
  return [...macs].sort();
}

export default {
  mount(root) {
    let schedules = [];
    let pending = [];
    let all = [];
    let stopped = false;
    const operator = app.canOperate();

    const search = h('input', { type: 'search', id: 'holder-search', placeholder: 'Card number or name', 'aria-label': 'Search by card number or name', maxlength: 200 });
    const counter = h('span', { class: 'muted small', id: 'holder-count' });
    const body = h('tbody', { id: 'holder-rows' });
    const table = h('table', { class: 'table table-cards holders' },
      h('thead', {}, h('tr', {}, h('th', {}, 'Name'), h('th', {}, 'Cards'), h('th', {}, 'Doors'), h('th', {}, 'Valid'),
        h('th', {}, 'State'), h('th', {}, 'Controllers'))),
      body);
    const empty = h('p', { class: 'empty', hidden: true });
    root.append(
      h('div', { class: 'page-head' },
        h('div', {}, h('h1', {}, 'Cardholders'),
          h('p', { class: 'muted' }, `The gateway's cardholders and their cards. Windows are in the site's time (${app.site.time_zone}).`)),
        h('div', { class: 'head-actions' },
          operator ? h('button', { type: 'button', class: 'secondary', id: 'import-csv', onclick: () => importDialog({ schedules, done: load }) }, 'Import CSV') : null,
          operator ? h('button', { type: 'button', class: 'primary', id: 'add-holder', onclick: () => edit(null) }, 'Add cardholder') : null)),
      h('div', { class: 'panel toolbar' }, search, counter),
      h('div', { class: 'panel' }, table, empty));

    let timer = null;
    search.addEventListener('input', () => { clearTimeout(timer); timer = setTimeout(load, 300); });

    function pendingFor(id) { return pending.filter((p) => p.cardholder === id); }

    function render() {
      clear(body);
      for (const c of all.slice(0, SHOWN)) {
        const waiting = pendingFor(c.id);
        const refused = waiting.filter((p) => p.last_result);
        const macs = controllersOf(c.access || []);
        const sync = !macs.length ? h('span', { class: 'muted' }, 'gateway only')
          : refused.length ? h('span', { class: 'chip chip-red', title: refused.map((p) => `${p.mac}: ${p.last_result}`).join('\n') }, `${refused.length} refused`)
            : waiting.length ? h('span', { class: 'chip chip-amber', title: [...new Set(waiting.map((p) => p.mac))].join(', ') }, `${waiting.length} waiting`)
              : h('span', { class: 'chip chip-green', title: macs.join(', ') }, `written to ${macs.length}`);
        body.append(h('tr', { 'data-id': c.id, tabindex: 0, class: 'clickable', onclick: () => edit(c), onkeydown: (e) => { if (e.key === 'Enter') edit(c); } },
          h('td', { 'data-label': 'Name', class: 'strong' }, c.name),
          h('td', { 'data-label': 'Cards', class: 'mono' }, (c.cards || []).map((k) => (k.facility != null ? `${k.facility}/${k.number}` : String(k.number))).join(', ') || '—'),
          h('td', { 'data-label': 'Doors' }, (c.access || []).map((a) => a.door + (a.schedule ? ` (${a.schedule})` : '') + (a.pin ? ' + PIN' : '')).join(', ') || '—'),
          h('td', { 'data-label': 'Valid' }, windowText(c)),
          h('td', { 'data-label': 'State' }, c.enabled === false ? h('span', { class: 'chip chip-grey' }, 'disabled') : h('span', { class: 'chip chip-green' }, 'enabled')),
          h('td', { 'data-label': 'Controllers' }, sync)));
      }
      const q = search.value.trim();
      empty.hidden = all.length > 0;
      empty.textContent = q ? `No cardholder has "${q}" in the name or as a card number.` : 'No cardholders yet.';
      table.hidden = all.length === 0;
      counter.textContent = all.length > SHOWN ? `Showing ${SHOWN} of ${all.length}: search to narrow.` : plural(all.length, 'cardholder');
    }

    async function load() {
      const q = search.value.trim();
      try {
        const [list, p] = await Promise.all([
          api('GET', `cardholders${q ? `?search=${encodeURIComponent(q)}` : ''}`),
          api('GET', 'pending-card-changes'),
        ]);
        if (stopped) return;
        all = list.cardholders;
        pending = p.pending;
        render();
      } catch (e) {
        if (!stopped) counter.textContent = e.message;
      }
      if (!q) refreshHolders();
    }

    function edit(holder) {
      editor(holder, schedules, pendingFor(holder ? holder.id : 0), load);
    }

    api('GET', 'schedules').then((r) => { schedules = r.schedules; }).catch(() => {});
    load();
    const refresher = setInterval(() => { if (!document.querySelector('.dialog')) load(); }, 15000);
    return () => { stopped = true; clearInterval(refresher); clearTimeout(timer); };
  },
};

// ---- The editor ---------------------------------------------------------------------------

function editor(holder, schedules, waiting, saved) {
  const operator = app.canOperate();
  const doc = holder ? JSON.parse(JSON.stringify(holder)) : { name: '', pin: '', enabled: true, cards: [{ number: '' }], access: [] };
  const field = (name, label, input, hint) => h('div', { class: 'field', 'data-field': name },
    h('label', { for: input.id }, label), input, hint ? h('p', { class: 'hint' }, hint) : null, h('p', { class: 'field-error', role: 'alert' }));

  const name = h('input', { id: 'holder-name', type: 'text', value: doc.name || '', maxlength: 200, autocomplete: 'off', disabled: !operator });
  const pin = h('input', { id: 'holder-pin', type: 'text', inputmode: 'numeric', value: doc.pin || '', maxlength: 16, autocomplete: 'off', disabled: !operator });
  const from = h('input', { id: 'holder-from', type: 'datetime-local', value: (doc.valid_from || '').slice(0, 16), disabled: !operator });
  const until = h('input', { id: 'holder-until', type: 'datetime-local', value: (doc.valid_until || '').slice(0, 16), disabled: !operator });
  const enabled = h('input', { id: 'holder-enabled', type: 'checkbox', checked: doc.enabled !== false, disabled: !operator });

  // Cards: one row each, indexed as the API names them.
  const cardRows = h('div', { class: 'card-rows' });
  const cardError = h('p', { class: 'field-error', role: 'alert' });
  function cardRow(c) {
    const number = h('input', { type: 'text', inputmode: 'numeric', class: 'card-number', value: c.number ?? '', placeholder: 'Card number', 'aria-label': 'Card number', disabled: !operator });
    const facility = h('input', { type: 'text', inputmode: 'numeric', class: 'card-facility', value: c.facility ?? '', placeholder: 'Any', 'aria-label': 'Facility', disabled: !operator });
    const row = h('div', { class: 'card-row' },
      h('div', { class: 'sub-field field-number' }, number, h('p', { class: 'field-error', role: 'alert' })),
      h('div', { class: 'sub-field field-facility' }, facility, h('p', { class: 'field-error', role: 'alert' })),
      operator ? h('button', { type: 'button', class: 'icon-button', 'aria-label': 'Remove this card', onclick: () => { row.remove(); reindex(); } }, '×') : null);
    return row;
  }
  function reindex() {
    [...cardRows.querySelectorAll('.card-row')].forEach((row, i) => {
      row.dataset.field = `cards[${i}]`;
      row.querySelector('.field-number').dataset.field = `cards[${i}].number`;
      row.querySelector('.field-facility').dataset.field = `cards[${i}].facility`;
    });
  }
  for (const c of doc.cards || []) cardRows.append(cardRow(c));
  reindex();
  const addCard = operator ? h('button', { type: 'button', class: 'ghost small', id: 'add-card', onclick: () => { cardRows.append(cardRow({ number: '' })); reindex(); cardRows.lastElementChild.querySelector('input').focus(); } }, '+ Add a card') : null;

  // Doors: each of the site's, with its schedule and whether a PIN follows the card.
  const doorRows = (app.site.doors || []).map((d) => {
    const given = (doc.access || []).find((a) => a.door === d.name);
    const on = h('input', { type: 'checkbox', class: 'door-on', checked: !!given, disabled: !operator, 'aria-label': `May open ${d.name}` });
    const schedule = h('select', { class: 'door-schedule', disabled: !operator, 'aria-label': `Schedule at ${d.name}` },
      h('option', { value: '' }, 'At any time'),
      schedules.map((s) => h('option', { value: s.name, selected: given && given.schedule === s.name }, s.name)));
    if (given && given.schedule && !schedules.some((s) => s.name === given.schedule)) {
      schedule.append(h('option', { value: given.schedule, selected: true }, given.schedule));
    }
    const withPin = h('input', { type: 'checkbox', class: 'door-pin', checked: !!(given && given.pin), disabled: !operator });
    const row = h('div', { class: 'door-row', 'data-door': d.name },
      h('label', { class: 'door-name' }, on, h('span', {}, d.name), h('span', { class: 'muted small mono' }, ` ${d.controller}`)),
      schedule,
      h('label', { class: 'door-pin-label' }, withPin, h('span', {}, 'PIN')),
      h('p', { class: 'field-error', role: 'alert' }));
    return { d, row, on, schedule, withPin };
  });
  const where = h('p', { class: 'hint', id: 'written-to' });
  function showWhere() {
    const macs = controllersOf(doorRows.filter((r) => r.on.checked).map((r) => ({ door: r.d.name })));
    where.textContent = macs.length
      ? `Its cards are also written into the controller${macs.length > 1 ? 's' : ''} ${macs.join(', ')}, so those doors open for them while the gateway is away.`
      : 'Choose the doors this person may open; their controllers then hold the cards too.';
  }
  for (const r of doorRows) r.on.addEventListener('change', showWhere);
  showWhere();

  const waitingNote = waiting.length
    ? h('div', { class: 'note note-amber' }, `${plural(waiting.length, 'card change')} not yet written: `,
      waiting.map((p) => `${p.op} card ${p.card} on ${p.mac}${p.last_result ? ` (refused: ${p.last_result})` : ' (waiting for it to connect)'}`).join('; '))
    : null;

  const checkOut = h('div', { class: 'check-out', id: 'controller-check' });
  const checkButton = holder ? h('button', { type: 'button', class: 'ghost small', id: 'check-controllers', onclick: () => checkControllers() }, 'Check the controllers\' records') : null;
  async function checkControllers() {
    const macs = controllersOf(holder.access || []);
    clear(checkOut);
    if (!macs.length || !(holder.cards || []).length) {
      checkOut.append(h('p', { class: 'muted' }, 'No controller holds these cards: no door is chosen.'));
      return;
    }
    const rows = [];
    for (const card of holder.cards) {
      for (const mac of macs) {
        let state;
        try {
          await api('GET', `controllers/${mac}/cards/${card.facility > 0 ? card.facility : 0}/0/${card.number}`);
          state = h('span', { class: 'chip chip-green' }, 'held');
        } catch (e) {
          state = e.status === 404 ? h('span', { class: 'chip chip-amber' }, 'not held')
            : h('span', { class: 'chip chip-grey', title: e.message }, e.status === 503 ? 'offline' : 'unknown');
        }
        rows.push(h('tr', {}, h('td', { class: 'mono' }, String(card.number)), h('td', { class: 'mono' }, mac), h('td', {}, state)));
      }
    }
    checkOut.append(h('table', { class: 'table compact' },
      h('thead', {}, h('tr', {}, h('th', {}, 'Card'), h('th', {}, 'Controller'), h('th', {}, 'Its record'))), h('tbody', {}, rows)));
  }

  const form = h('form', { class: 'form', id: 'holder-form', novalidate: true, onsubmit: (e) => e.preventDefault() },
    h('div', { class: 'form-error', 'data-field': '_form' }, h('p', { class: 'field-error', role: 'alert' })),
    field('name', 'Name', name),
    h('div', { class: 'form-grid' },
      field('valid_from', 'Valid from', from, 'Empty: no start'),
      field('valid_until', 'Valid until', until, 'Empty: no end')),
    h('div', { class: 'form-grid' },
      field('pin', 'PIN', pin, 'Digits, for doors that ask for one'),
      h('div', { class: 'field field-check' }, h('label', { class: 'check' }, enabled, h('span', {}, 'Enabled: the cards open doors')))),
    h('fieldset', { 'data-field': 'cards' }, h('legend', {}, 'Cards'), cardError, cardRows, addCard),
    h('fieldset', { 'data-field': 'access' }, h('legend', {}, 'Doors'), h('p', { class: 'field-error', role: 'alert' }),
      doorRows.length ? doorRows.map((r) => r.row) : h('p', { class: 'muted' }, 'The site has no doors in its config.'),
      where),
    waitingNote,
    holder ? h('div', { class: 'controller-check' }, checkButton, checkOut) : null);

  function gather() {
    const out = { name: name.value.trim(), enabled: enabled.checked, cards: [], access: [] };
    if (pin.value.trim()) out.pin = pin.value.trim();
    if (from.value) out.valid_from = from.value;
    if (until.value) out.valid_until = until.value;
    for (const row of cardRows.querySelectorAll('.card-row')) {
      const number = row.querySelector('.card-number').value.trim();
      const facility = row.querySelector('.card-facility').value.trim();
      if (!number && !facility) continue;
      out.cards.push(facility ? { number, facility } : { number });
    }
    // The access entries in order, each noting its row so that an error finds its way back.
    doorRows.forEach((r) => r.row.removeAttribute('data-field'));
    for (const r of doorRows) {
      if (!r.on.checked) continue;
      r.row.dataset.field = `access[${out.access.length}]`;
      const a = { door: r.d.name };
      if (r.schedule.value) a.schedule = r.schedule.value;
      if (r.withPin.checked) a.pin = true;
      out.access.push(a);
    }
    renumberCards();
    return out;
  }
  // Empty card rows are left out: the rows that remain are numbered as sent.
  function renumberCards() {
    let i = 0;
    for (const row of cardRows.querySelectorAll('.card-row')) {
      const number = row.querySelector('.card-number').value.trim();
      const facility = row.querySelector('.card-facility').value.trim();
      if (!number && !facility) { row.removeAttribute('data-field'); continue; }
      row.dataset.field = `cards[${i}]`;
      row.querySelector('.field-number').dataset.field = `cards[${i}].number`;
      row.querySelector('.field-facility').dataset.field = `cards[${i}].facility`;
      i++;
    }
  }

  function report(problems) {
    // "access[0].schedule" finds its door's row when nothing has the exact name.
    for (const p of problems) showFieldError(form, p.field, p.message);
    const first = form.querySelector('.has-error input, .has-error select');
    if (first) first.focus();
  }

  async function save() {
    clearFieldErrors(form);
    const body = gather();
    const problems = checkHolder(body, app.site, schedules);
    if (problems.length) {
      report(problems);
      return false;
    }
    // Numbers go as numbers; the checks above made sure they are.
    const sent = { ...body, cards: body.cards.map((c) => (c.facility !== undefined ? { number: Number(c.number), facility: Number(c.facility) } : { number: Number(c.number) })) };
    try {
      if (holder) await api('PUT', `cardholders/${holder.id}`, sent);
      else await api('POST', 'cardholders', sent);
      toast(`${body.name} ${holder ? 'saved' : 'added'}`);
      saved();
      return true;
    } catch (e) {
      if (e.status === 400 || e.status === 409 || e.status === 404) {
        const p = apiProblem(e);
        if (!showFieldError(form, p.field, p.message)) showFieldError(form, '_form', p.message);
        const first = form.querySelector('.has-error input, .has-error select');
        if (first) first.focus();
      } else {
        showFieldError(form, '_form', e.message);
      }
      return false;
    }
  }

  async function remove(close) {
    if (!await confirmDialog(`Remove ${holder.name}?`, 'Their cards stop opening doors, and are taken out of the controllers\' databases.', 'Remove', 'danger')) return;
    try {
      await api('DELETE', `cardholders/${holder.id}`);
      toast(`${holder.name} removed`);
      close();
      saved();
    } catch (e) {
      showFieldError(form, '_form', e.message);
    }
  }

  const actions = [];
  if (operator && holder) actions.push({ label: 'Remove', kind: 'danger left', id: 'remove', onclick: (close) => { remove(close); return false; } });
  actions.push({ label: operator ? 'Cancel' : 'Close', kind: 'secondary', id: 'cancel', onclick: () => true });
  if (operator) actions.push({ label: holder ? 'Save' : 'Add', kind: 'primary', id: 'save', onclick: () => save() });
  openDialog({ title: holder ? holder.name : 'New cardholder', body: form, actions, wide: true });
}

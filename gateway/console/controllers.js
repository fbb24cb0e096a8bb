// Controllers: which are connected, over an encrypted link or in clear, their model and firmware
// (ControllerInfo), their clock's drift from the site's and when each was last heard from. The
// list follows the live stream; the model and the drift are asked of each controller once it is
// connected (a few at a time), and the drift again every five minutes.

import { api, app, clear, fmtAgo, fmtFull, h, live, toast } from './common.js';

const DRIFT_EVERY_MS = 5 * 60 * 1000;
const AT_ONCE = 3;

export default {
  mount(root) {
    const rows = new Map();      // mac -> state
    let queue = [];
    let running = 0;

    const summary = h('div', { class: 'tiles' });
    const body = h('tbody', {});
    const table = h('table', { class: 'table table-cards', id: 'controllers-table' },
      h('thead', {}, h('tr', {},
        h('th', {}, 'Controller'), h('th', {}, 'State'), h('th', {}, 'Link'), h('th', {}, 'Model'),
        h('th', {}, 'Firmware'), h('th', {}, 'Clock drift'), h('th', {}, 'Last heard'),
        h('th', { class: 'col-actions' }, ''))),
      body);
    const empty = h('p', { class: 'empty', hidden: true },
      'No controller is connected or listed as valid yet. Controllers appear here as they connect.');
    root.append(
      h('div', { class: 'page-head' },
        h('div', {}, h('h1', {}, 'Controllers'),
          h('p', { class: 'muted' }, 'Live: links, firmware and clocks of the site\'s controllers.')),
        h('button', { type: 'button', class: 'secondary', onclick: () => refresh(true) }, 'Refresh')),
      summary, h('div', { class: 'panel' }, table, empty));

    const seeds = app.site.seeds;
    const encrypted = (mac) => seeds.default || seeds.controllers.includes(mac);

    function linkCell(mac) {
      return encrypted(mac)
        ? h('span', { class: 'link link-encrypted', title: 'The seed file keys this controller: it identifies on an encrypted link.' }, h('span', { class: 'lock-icon' }), 'Encrypted')
        : h('span', { class: 'link link-clear', title: 'No seed for this controller in the seed file: its link is in clear.' }, 'Clear');
    }

    function driftCell(s) {
      if (s.drift === undefined) return h('span', { class: 'muted' }, s.connected ? '…' : '—');
      if (s.drift === null) return h('span', { class: 'muted', title: s.driftError || '' }, 'unknown');
      const abs = Math.abs(s.drift);
      const cls = abs >= 60 ? 'drift drift-bad' : abs >= 5 ? 'drift drift-warn' : 'drift drift-ok';
      const text = abs < 1 ? 'in step' : `${s.drift > 0 ? '+' : '−'}${abs >= 3600 ? `${Math.floor(abs / 3600)} h ${Math.round((abs % 3600) / 60)} min` : abs >= 60 ? `${Math.floor(abs / 60)} min ${abs % 60} s` : `${abs} s`}`;
      return h('span', { class: cls, title: s.controllerTime ? `Controller clock ${s.controllerTime}` : '' }, text);
    }

    function render() {
      const list = [...rows.values()].sort((a, b) => a.mac.localeCompare(b.mac));
      clear(body);
      for (const s of list) {
        const setClock = app.canOperate() && s.connected
          ? h('button', { type: 'button', class: 'ghost small', title: 'Set the controller\'s clock to the gateway\'s', onclick: () => setClock(s.mac) }, 'Set clock')
          : null;
        body.append(h('tr', { 'data-mac': s.mac, class: s.connected ? 'row-up' : 'row-down' },
          h('td', { 'data-label': 'Controller' }, h('span', { class: 'mono strong' }, s.mac),
            s.valid ? null : h('span', { class: 'chip chip-amber', title: 'Not in the valid list' }, 'not valid')),
          h('td', { 'data-label': 'State', class: 'cell-state' }, s.connected
            ? h('span', { class: 'status status-up' }, 'Connected')
            : h('span', { class: 'status status-down' }, 'Offline')),
          h('td', { 'data-label': 'Link' }, linkCell(s.mac)),
          h('td', { 'data-label': 'Model', class: 'cell-model' }, s.model || h('span', { class: 'muted' }, s.connected && !s.infoError ? '…' : '—')),
          h('td', { 'data-label': 'Firmware', class: 'cell-firmware' }, s.firmware || h('span', { class: 'muted' }, '—')),
          h('td', { 'data-label': 'Clock drift', class: 'cell-drift' }, driftCell(s)),
          h('td', { 'data-label': 'Last heard', class: 'cell-heard', title: fmtFull(s.heardMs) }, fmtAgo(s.heardMs)),
          h('td', { class: 'col-actions' }, setClock)));
      }
      empty.hidden = list.length > 0;
      table.hidden = list.length === 0;
      const up = list.filter((s) => s.connected).length;
      const enc = list.filter((s) => s.connected && encrypted(s.mac)).length;
      const drifts = list.filter((s) => typeof s.drift === 'number').map((s) => Math.abs(s.drift));
      clear(summary).append(
        tile('Connected', `${up} / ${list.length}`, up === list.length && list.length ? 'ok' : up ? 'warn' : 'bad', 'tile-connected'),
        tile('Encrypted links', `${enc} / ${up}`, enc === up ? 'ok' : 'neutral'),
        tile('Largest drift', drifts.length ? `${Math.max(...drifts)} s` : '—', drifts.length && Math.max(...drifts) >= 60 ? 'warn' : 'neutral'),
        tile('Offline', String(list.length - up), list.length - up ? 'bad' : 'ok'));
    }

    function tile(label, value, tone, id) {
      return h('div', { class: `tile tile-${tone}`, id: id || null }, h('div', { class: 'tile-label' }, label), h('div', { class: 'tile-value' }, value));
    }

    function ask(mac, what) {
      queue.push({ mac, what });
      pump();
    }

    function pump() {
      while (running < AT_ONCE && queue.length) {
        const { mac, what } = queue.shift();
        const s = rows.get(mac);
        if (!s || !s.connected) continue;
        running++;
        const done = () => { running--; if (!stopped) { render(); pump(); } };
        if (what === 'info') {
          api('GET', `controllers/${mac}/info`).then((r) => {
            // "model;firmware;MAC;serial;"
            const f = (r.info || '').split(';');
            s.model = f[0] || '?';
            s.firmware = f[1] || '?';
            s.serial = f[3] || '';
            s.infoError = '';
          }).catch((e) => { s.infoError = e.message; s.model = ''; }).finally(done);
        } else {
          api('GET', `controllers/${mac}/time`).then((r) => {
            s.drift = typeof r.drift_s === 'number' ? r.drift_s : null;
            s.controllerTime = r.controller || '';
            s.driftAt = Date.now();
          }).catch((e) => { s.drift = null; s.driftError = e.message; s.driftAt = Date.now(); }).finally(done);
        }
      }
    }

    function upsert(c) {
      let s = rows.get(c.mac);
      const wasUp = s && s.connected;
      if (!s) { s = { mac: c.mac }; rows.set(c.mac, s); }
      s.valid = c.valid;
      s.connected = c.connected;
      s.heardMs = c.last_heard ? Date.parse(c.last_heard) : (s.heardMs || 0);
      if (s.connected && !wasUp) {
        s.model = s.model || '';
        ask(s.mac, 'info');
        ask(s.mac, 'time');
      }
    }

    let stopped = false;
    // A busy site sends many records a second: the table is drawn again at most twice a second.
    let pending = null;
    function later() {
      if (pending) return;
      pending = setTimeout(() => { pending = null; if (!stopped) render(); }, 500);
    }

    async function refresh(loud) {
      try {
        const r = await api('GET', 'controllers');
        for (const c of r.controllers) upsert(c);
        if (!stopped) render();
        if (loud) toast('Controllers refreshed');
      } catch (e) {
        if (loud && !e.offline) toast(e.message, 'error');
      }
    }

    async function setClock(mac) {
      try {
        const r = await api('PUT', `controllers/${mac}/time`, {});
        toast(`${mac}: clock set to ${r.date} ${r.time}`);
        ask(mac, 'time');
      } catch (e) {
        toast(`${mac}: ${e.message}`, 'error');
      }
    }

    const unsubscribe = live.subscribe((r) => {
      if (!r.mac) return;
      let s = rows.get(r.mac);
      if (!s) { s = { mac: r.mac, valid: true, connected: false }; rows.set(r.mac, s); }
      s.heardMs = r.received_ms;
      if (r.kind === 'connect' && !s.connected) {
        s.connected = true;
        s.model = '';
        s.drift = undefined;
        ask(r.mac, 'info');
        ask(r.mac, 'time');
      } else if (r.kind === 'disconnect') {
        s.connected = false;
      }
      later();
    });

    const timers = [
      // "Last heard" ages by itself; the list is read again now and then, as notices can trail.
      setInterval(() => {
        for (const td of body.querySelectorAll('tr[data-mac] .cell-heard')) {
          const st = rows.get(td.parentElement.dataset.mac);
          if (st) td.textContent = fmtAgo(st.heardMs);
        }
      }, 1000),
      setInterval(() => refresh(false), 15000),
      setInterval(() => {
        for (const s of rows.values()) if (s.connected && (!s.driftAt || Date.now() - s.driftAt > DRIFT_EVERY_MS)) ask(s.mac, 'time');
      }, 30000),
    ];
    const onBack = () => {
      for (const s of rows.values()) s.connected = false;
      refresh(false);
    };
    window.addEventListener('zanthd-reconnected', onBack);
    refresh(false);
    return () => {
      stopped = true;
      clearTimeout(pending);
      queue = [];
      unsubscribe();
      timers.forEach(clearInterval);
      window.removeEventListener('zanthd-reconnected', onBack);
    };
  },
};
